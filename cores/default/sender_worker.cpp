#include "cores/default/sender_worker.h"

#include "cores/default/background_thread.h"

namespace vantamo::core {

SenderWorker::~SenderWorker() { stop(std::chrono::hours(1)); }

void SenderWorker::start() {
  const platform::MutexLock lock(mutex_);
  if (running_ || stopping_) return;
  thread_ = startBackgroundThread([this] { run(); });
  running_ = true;
}

void SenderWorker::wake() {
  const platform::MutexLock lock(mutex_);
  if (std::exchange(woken_, true)) return;
  changed_.notify_all();
}

bool SenderWorker::stop(std::chrono::milliseconds limit) {
  const auto deadline = Sender::Clock::now() + limit;
  std::thread ended;
  {
    const platform::MutexLock lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
    while (running_) {
      if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout && running_) {
        thread_.detach();
        return false;
      }
    }
    ended = std::move(thread_);
  }
  if (ended.joinable()) ended.join();
  return true;
}

std::uint64_t SenderWorker::progress() {
  const platform::MutexLock lock(mutex_);
  return steps_;
}

bool SenderWorker::waitForProgress(std::uint64_t seen, Sender::TimePoint deadline) {
  const platform::MutexLock lock(mutex_);
  while (steps_ <= seen) {
    if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) return steps_ > seen;
  }
  return true;
}

void SenderWorker::run() {
  mutex_.lock();
  while (!stopping_) {
    woken_ = false;
    mutex_.unlock();
    const auto next = sender_.step();
    mutex_.lock();
    ++steps_;
    changed_.notify_all();
    while (!stopping_ && !woken_) {
      if (!next) {
        changed_.wait(mutex_);
      } else if (changed_.wait_until(mutex_, *next) == std::cv_status::timeout) {
        break;
      }
    }
  }
  running_ = false;
  changed_.notify_all();
  mutex_.unlock();
}

}  // namespace vantamo::core
