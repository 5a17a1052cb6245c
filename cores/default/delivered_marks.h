#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/unique_fd.h"

namespace vantamo::core {

/// The ids of messages that were delivered and may still stand in the database, in a small file
/// that is written without waiting for the disk: so that a process killed between an answer and the
/// removal does not send what was answered. The file has its full size from the beginning, so that
/// a full disk does not keep it from being written. For one thread.
class DeliveredMarks {
 public:
  /// As many ids as the file holds; then the oldest is overwritten.
  static constexpr std::size_t capacity = 256;

  explicit DeliveredMarks(platform::UniqueFd file);

  /// The ids in the file, in no order.
  [[nodiscard]] std::vector<std::string> read() const;
  /// Notes an id, which is written with others by write().
  void add(std::string_view id);
  /// False when what was noted could not be written.
  [[nodiscard]] bool write() noexcept;
  /// What was noted need not be written any more.
  void forget() noexcept { noted_.clear(); }

 private:
  platform::UniqueFd file_;
  std::size_t next_ = 0;
  std::string noted_;  // lines from `next_` on
};

}  // namespace vantamo::core
