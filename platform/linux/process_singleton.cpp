#include "platform/process_singleton.h"

#include <pthread.h>

#include <new>

namespace vantamo::platform {
namespace {

struct Hearer {
  void (*inChild)(void* object) noexcept;
  void* object;
  Hearer* next;
};

// Without a lock, which a child could find held; hearers are only ever added.
constinit std::atomic<Hearer*> hearers{nullptr};
constinit std::atomic<bool> registered{false};

void tellHearers() {
  for (const Hearer* hearer = hearers.load(); hearer != nullptr; hearer = hearer->next) {
    hearer->inChild(hearer->object);
  }
}

}  // namespace

void callInForkedChildren(void (*inChild)(void* object) noexcept, void* object) {
  // Registered before anything can be heard of; twice, by two threads at once, does no harm.
  if (!registered.load()) {
    if (pthread_atfork(nullptr, nullptr, &tellHearers) != 0) throw std::bad_alloc();
    registered.store(true);
  }
  auto* const hearer = new Hearer{inChild, object, hearers.load()};
  while (!hearers.compare_exchange_weak(hearer->next, hearer)) continue;
}

}  // namespace vantamo::platform
