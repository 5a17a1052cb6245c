#include "state/vt_tags_ring_buffer.h"

#include <stdexcept>
#include <utility>

#include "platform/process_singleton.h"

using vantamo::platform::MutexLock;

VTTagsRingBuffer& VTTagsRingBuffer::sharedInstance() {
  static constinit vantamo::platform::ProcessSingleton<VTTagsRingBuffer> instance;
  return instance.get();
}

void VTTagsRingBuffer::addObject(Tag tag) {
  const MutexLock lock(mutex_);
  if (ringBuffer_.size() >= maxTagsCount_) {
    if (!removeFirstOnOverflow_) {
      if (!ringBuffer_.empty()) ringBuffer_.pop_back();
    } else if (ringBuffer_.empty()) {
      throw std::out_of_range("no oldest tag to remove");
    } else {
      ringBuffer_.erase(ringBuffer_.begin());
    }
  }
  if (tag == nullptr) throw std::invalid_argument("a missing tag cannot be added");
  ringBuffer_.push_back(std::move(tag));
}

std::size_t VTTagsRingBuffer::count() const {
  const MutexLock lock(mutex_);
  return ringBuffer_.size();
}

VTTagsRingBuffer::Tag VTTagsRingBuffer::objectAtIndex(std::size_t index) const {
  const MutexLock lock(mutex_);
  return index < ringBuffer_.size() ? ringBuffer_[index] : nullptr;
}

void VTTagsRingBuffer::removeObjectAtIndex(std::size_t index) {
  const MutexLock lock(mutex_);
  if (index < ringBuffer_.size()) {
    ringBuffer_.erase(ringBuffer_.begin() + static_cast<std::ptrdiff_t>(index));
  }
}

std::vector<VTTagsRingBuffer::Tag> VTTagsRingBuffer::ringBuffer() const {
  const MutexLock lock(mutex_);
  return ringBuffer_;
}

void VTTagsRingBuffer::setRingBuffer(const std::vector<Tag>& tags) {
  const MutexLock lock(mutex_);
  ringBuffer_ = tags;
}
