#pragma once

#include <atomic>

#include "platform/core_export.h"

namespace vantamo::platform {

/// Has every later fork() call `inChild(object)` in the child, before fork() returns there. Called
/// twice for the same pair it may call twice. Throws std::bad_alloc.
VANTAMO_CORE_EXPORT void callInForkedChildren(void (*inChild)(void* object) noexcept, void* object);

/// The one T of this process: made at first use, by one thread while the others wait, and never
/// destroyed, because threads may use it until the process ends.
///
///   Core& Core::sharedInstance() {
///     static constinit ProcessSingleton<Core> instance;
///     return instance.get([] { return new Core(); });  // plain get() when anyone may make one
///   }
///
/// A forked child has one thread: a mutex of T that another thread held would stay locked for ever.
/// So the child forgets the object, without touching it, and makes its own at the next get().
/// What else T must do in the child goes into
///
///   static void abandonInChild(T& object) noexcept;
///
/// which is public, is called on the object while it is forgotten, and may do only what is
/// async-signal-safe: close a descriptor, say.
///
/// Safe from any thread. What the constructor of T throws leaves get(), and the next get() tries
/// again. A constructor that gets its own singleton waits for ever. vfork, _Fork and clone run no
/// handlers: their children must not call the library before exec.
template <class T>
class ProcessSingleton {
 public:
  constexpr ProcessSingleton() = default;
  ProcessSingleton(const ProcessSingleton&) = delete;
  ProcessSingleton& operator=(const ProcessSingleton&) = delete;

  [[nodiscard]] T& get() {
    return get([] { return new T(); });
  }

  /// The same with the object that `make` answers: for a T whose constructor is private.
  template <class Make>
  [[nodiscard]] T& get(Make make) {
    T* const object = object_.load(std::memory_order_acquire);
    return object != nullptr ? *object : create(make);
  }

 private:
  // Not a mutex: a child can free it whoever held it.
  class Creation {
   public:
    explicit Creation(std::atomic<int>& busy) : busy_(busy) {
      while (busy_.exchange(1, std::memory_order_acquire) != 0) busy_.wait(1);
    }
    Creation(const Creation&) = delete;
    Creation& operator=(const Creation&) = delete;
    ~Creation() {
      busy_.store(0, std::memory_order_release);
      busy_.notify_one();
    }

   private:
    std::atomic<int>& busy_;
  };

  template <class Make>
  T& create(Make& make) {
    // First of all, so that no child finds anything of ours that it does not hear of. Two threads
    // may come here at once: then the child forgets twice.
    if (!hearsOfForks_.load(std::memory_order_acquire)) {
      callInForkedChildren(&ProcessSingleton::forget, this);
      hearsOfForks_.store(true, std::memory_order_release);
    }
    const Creation creation(creating_);
    T* object = object_.load(std::memory_order_acquire);
    if (object == nullptr) {
      object = make();
      object_.store(object, std::memory_order_release);
    }
    return *object;
  }

  static void forget(void* singleton) noexcept {
    auto& self = *static_cast<ProcessSingleton*>(singleton);
    self.creating_.store(0);
    T* const object = self.object_.exchange(nullptr);
    if (object == nullptr) return;
    self.forgotten_ = object;
    if constexpr (requires { T::abandonInChild(*object); }) {
      static_assert(noexcept(T::abandonInChild(*object)));
      T::abandonInChild(*object);
    }
  }

  std::atomic<T*> object_{nullptr};
  std::atomic<int> creating_{0};
  std::atomic<bool> hearsOfForks_{false};
  T* forgotten_ = nullptr;  // for leak checkers: nobody has lost it
};

}  // namespace vantamo::platform
