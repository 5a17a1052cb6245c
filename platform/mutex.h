#pragma once

#include <mutex>
#include <utility>

// Clang checks at compile time that what a mutex guards is touched only while it is held.
#if defined(__clang__)
#define VANTAMO_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define VANTAMO_THREAD_ATTRIBUTE(x)
#endif
#define VANTAMO_GUARDED_BY(mutex) VANTAMO_THREAD_ATTRIBUTE(guarded_by(mutex))
#define VANTAMO_REQUIRES(mutex) VANTAMO_THREAD_ATTRIBUTE(requires_capability(mutex))

namespace vantamo::platform {

/// std::mutex as clang's thread-safety analysis knows it.
class VANTAMO_THREAD_ATTRIBUTE(capability("mutex")) Mutex {
 public:
  void lock() VANTAMO_THREAD_ATTRIBUTE(acquire_capability()) { mutex_.lock(); }
  void unlock() VANTAMO_THREAD_ATTRIBUTE(release_capability()) { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a Mutex for a scope.
class VANTAMO_THREAD_ATTRIBUTE(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) VANTAMO_THREAD_ATTRIBUTE(acquire_capability(mutex))
      : mutex_(mutex) {
    mutex_.lock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() VANTAMO_THREAD_ATTRIBUTE(release_capability()) { mutex_.unlock(); }

 private:
  Mutex& mutex_;
};

/// A value with its own mutex, for fields that one thread writes and others read. Copies go in and
/// out; nothing is called while the mutex is held.
template <class T>
class Locked {
 public:
  Locked() = default;
  explicit Locked(T value) : value_(std::move(value)) {}

  [[nodiscard]] T get() const {
    const MutexLock lock(mutex_);
    return value_;
  }
  void set(T value) {
    const MutexLock lock(mutex_);
    std::swap(value_, value);
  }

 private:
  mutable Mutex mutex_;
  T value_ VANTAMO_GUARDED_BY(mutex_){};
};

}  // namespace vantamo::platform
