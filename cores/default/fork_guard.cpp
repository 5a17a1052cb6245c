#include "cores/default/fork_guard.h"

#include <pthread.h>
#include <sqlite3.h>

#include <array>
#include <atomic>
#include <chrono>
#include <new>
#include <thread>

namespace vantamo::core {
namespace {

// None of them is held while a disk is waited for.
constexpr std::array<int, 7> sharedLocks = {SQLITE_MUTEX_STATIC_PRNG, SQLITE_MUTEX_STATIC_MAIN,
                                            SQLITE_MUTEX_STATIC_OPEN, SQLITE_MUTEX_STATIC_VFS1,
                                            SQLITE_MUTEX_STATIC_LRU,  SQLITE_MUTEX_STATIC_PMEM,
                                            SQLITE_MUTEX_STATIC_MEM};
constexpr auto longest = std::chrono::milliseconds(200);

constinit std::atomic<bool> registered{false};
constinit thread_local bool held = false;

void releaseFirst(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) sqlite3_mutex_leave(sqlite3_mutex_alloc(sharedLocks[i]));
}

// All or none, so that no order of locking is depended on.
bool tryAll() {
  if (!libraryStartMutex().try_lock()) return false;
  for (std::size_t i = 0; i < sharedLocks.size(); ++i) {
    if (sqlite3_mutex_try(sqlite3_mutex_alloc(sharedLocks[i])) == SQLITE_OK) continue;
    releaseFirst(i);
    libraryStartMutex().unlock();
    return false;
  }
  return true;
}

void beforeFork() {
  const auto deadline = std::chrono::steady_clock::now() + longest;
  while (!(held = tryAll()) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

void afterFork() {
  if (!held) return;
  held = false;
  releaseFirst(sharedLocks.size());
  libraryStartMutex().unlock();
}

}  // namespace

void guardForks() {
  if (registered.exchange(true)) return;
  if (pthread_atfork(&beforeFork, &afterFork, &afterFork) != 0) {
    registered = false;
    throw std::bad_alloc();
  }
}

std::mutex& libraryStartMutex() {
  static constinit std::mutex mutex;
  return mutex;
}

}  // namespace vantamo::core
