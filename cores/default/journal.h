#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "cores/default/journal_record.h"
#include "platform/mutex.h"
#include "platform/private_folder.h"

namespace vantamo::core {

/// What a host's thread writes an accepted message to: one write() into a file's cached pages,
/// which waits for no disk and survives the end of the process by any cause. The sending thread
/// reads the records back and moves them to the database.
///
/// The file is written and not mapped into memory: a file that somebody cuts short, or a full disk,
/// would raise a signal in the host's thread when its page is touched, where write() answers.
///
/// Files are segments, numbered upward: journal-00000001.log and so on. append() is safe from any
/// thread, as are the getters; the rest is for the sending thread.
class Journal {
 public:
  /// Begins a segment behind those that are in the folder. Throws when that cannot be done.
  explicit Journal(const platform::PrivateFolder& folder);

  /// Throws std::system_error, and has written nothing, when the disk takes no more.
  void append(const Message& message);
  [[nodiscard]] std::uint64_t newestOrdinal() const noexcept { return ordinal_; }
  [[nodiscard]] std::uint64_t run() const noexcept { return run_; }

  /// A file that takes or took records.
  struct Segment {
    std::uint64_t id = 0;
    std::string name;
    platform::UniqueFd file;
  };

  /// Bytes that were written to the segment that takes records.
  [[nodiscard]] std::size_t written() const noexcept { return written_; }
  [[nodiscard]] const Segment& current() const noexcept { return *current_; }
  /// Waits until the disk has what was written.
  void sync(const platform::PrivateFolder& folder);
  /// Begins another segment in `folder`; answers the one before, which takes no record any more,
  /// and its size.
  std::pair<std::unique_ptr<Segment>, std::size_t> rotate(const platform::PrivateFolder& folder);

  /// The names of all segments in the folder, oldest first.
  [[nodiscard]] static std::vector<std::string> segmentsIn(const platform::PrivateFolder& folder);

 private:
  [[nodiscard]] std::unique_ptr<Segment> begin(const platform::PrivateFolder& folder) const;

  const std::uint64_t run_;
  platform::Mutex mutex_;
  std::unique_ptr<Segment> current_;  // changed by the sending thread, with the mutex held
  std::atomic<std::size_t> written_{journalHeaderSize};
  std::atomic<std::uint64_t> ordinal_{0};
  std::size_t synced_ = 0;  // of the current segment; the sending thread's alone
};

}  // namespace vantamo::core
