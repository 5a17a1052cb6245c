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
  /// Begins a segment behind those that are in the folder. While the disk is full there is none:
  /// then append() fails until rotate() has begun one. Throws when the folder takes no files at
  /// all.
  explicit Journal(const platform::PrivateFolder& folder);

  /// Throws std::system_error, and has written nothing, when the disk takes no more.
  void append(const MessageView& message);
  [[nodiscard]] std::uint64_t newestOrdinal() const noexcept { return ordinal_; }
  [[nodiscard]] std::uint64_t run() const noexcept { return run_; }

  /// A file that takes or took records.
  struct Segment {
    std::uint64_t id = 0;
    std::string name;
    platform::UniqueFd file;
    /// Of the process, for files, when the segment was begun.
    std::size_t sizeLimit = 0;
  };

  /// How much the segment that takes records holds, in bytes.
  [[nodiscard]] std::size_t end() const noexcept { return end_; }
  [[nodiscard]] const Segment& current() const noexcept { return *current_; }
  /// The same, with the number of messages appended to all segments so far and the bytes of their
  /// bodies.
  struct Written {
    std::size_t end = 0;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
  };
  [[nodiscard]] Written written();
  /// Waits until the disk has what was written.
  void sync(const platform::PrivateFolder& folder);
  /// Begins another segment in `folder`; answers the one before, which takes no record any more,
  /// and its size.
  std::pair<std::unique_ptr<Segment>, std::size_t> rotate(const platform::PrivateFolder& folder);
  /// Erases the records of the current segment. What had been written.
  Written clear();

  /// The names of all segments in the folder, oldest first.
  [[nodiscard]] static std::vector<std::string> segmentsIn(const platform::PrivateFolder& folder);

 private:
  [[nodiscard]] std::unique_ptr<Segment> begin(const platform::PrivateFolder& folder);

  const std::uint64_t run_;
  std::uint64_t number_ = 0;  // of the segment begun last; the sending thread's alone
  platform::Mutex mutex_;
  std::unique_ptr<Segment> current_;  // changed by the sending thread, with the mutex held
  std::atomic<std::size_t> end_{journalHeaderSize};
  std::atomic<std::uint64_t> ordinal_{0};
  std::uint64_t bytes_ VANTAMO_GUARDED_BY(mutex_) = 0;
  std::string record_ VANTAMO_GUARDED_BY(mutex_);  // its memory, so that none is asked for
  std::size_t synced_ = 0;  // of the current segment; the sending thread's alone
};

}  // namespace vantamo::core
