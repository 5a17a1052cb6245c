#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "platform/mutex.h"
#include "state/stored_tag.h"

/// A bounded list of tags that could not be posted at once, oldest first, and the flag that marks
/// the next page view as the first of its session. In memory only.
///
/// Despite its name a plain list: entries are appended at the end and removed anywhere. At most one
/// entry leaves per add: after a lowered `maxTagsCount` the list keeps its length.
///
/// Each operation is safe from any thread; a sequence of them is the caller's to keep together.
class VTTagsRingBuffer {
 public:
  using Tag = std::shared_ptr<const vantamo::state::StoredTag>;

  static VTTagsRingBuffer& sharedInstance();

  VTTagsRingBuffer() = default;
  VTTagsRingBuffer(const VTTagsRingBuffer&) = delete;
  VTTagsRingBuffer& operator=(const VTTagsRingBuffer&) = delete;

  /// Appends `tag`; a full list first loses its oldest entry, or its newest when
  /// `removeFirstOnOverflow` is false. Throws std::out_of_range when a list of capacity 0 is empty
  /// and should lose its oldest entry, std::invalid_argument for a missing tag.
  void addObject(Tag tag);
  std::size_t count() const;
  /// Null when `index` is not less than count().
  Tag objectAtIndex(std::size_t index) const;
  /// Does nothing when `index` is not less than count().
  void removeObjectAtIndex(std::size_t index);

  /// The capacity, 10 unless set.
  std::size_t maxTagsCount() const { return maxTagsCount_; }
  void setMaxTagsCount(std::size_t count) { maxTagsCount_ = count; }
  /// True: an overflow drops the oldest entry; false: the newest.
  bool removeFirstOnOverflow() const { return removeFirstOnOverflow_; }
  void setRemoveFirstOnOverflow(bool first) { removeFirstOnOverflow_ = first; }
  /// True until the first page view of a session was turned into technical properties.
  bool firstPageView() const { return firstPageView_; }
  void setFirstPageView(bool first) { firstPageView_ = first; }

  std::vector<Tag> ringBuffer() const;
  void setRingBuffer(const std::vector<Tag>& tags);

 private:
  std::atomic<bool> removeFirstOnOverflow_{true};
  std::atomic<bool> firstPageView_{true};
  std::atomic<std::size_t> maxTagsCount_{10};
  mutable vantamo::platform::Mutex mutex_;
  std::vector<Tag> ringBuffer_ VANTAMO_GUARDED_BY(mutex_);
};
