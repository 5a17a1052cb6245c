#include "cores/default/journal.h"

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <limits>
#include <system_error>

#include "cores/default/size_from.h"
#include "platform/random.h"

namespace vantamo::core {
namespace {

constexpr std::string_view prefix = "journal-";
constexpr std::string_view suffix = ".log";

std::uint64_t random64() {
  return (std::uint64_t{platform::random32()} << 32U) | platform::random32();
}

// 0 for a name that is not a segment's.
std::uint64_t numberOf(std::string_view name) {
  std::uint64_t number = 0;
  if (!name.starts_with(prefix) || !name.ends_with(suffix)) return 0;
  const char* end = name.data() + name.size() - suffix.size();
  const auto parsed = std::from_chars(name.data() + prefix.size(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end ? number : 0;
}

std::string nameOf(std::uint64_t number) {
  std::array<char, 40> name{};
  std::snprintf(name.data(), name.size(), "journal-%08llu.log",
                static_cast<unsigned long long>(number));
  return name.data();
}

// Writes all of it at the position, or throws; what a failed attempt has left there is overwritten
// by the next one.
void writeAt(int fd, std::string_view bytes, std::size_t position) {
  while (!bytes.empty()) {
    const ssize_t wrote = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(position));
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) {
      throw std::system_error(wrote == 0 ? ENOSPC : errno, std::generic_category(), "the journal");
    }
    bytes.remove_prefix(static_cast<std::size_t>(wrote));
    position += static_cast<std::size_t>(wrote);
  }
}

// A write beyond the process's limit of file sizes raises a signal that would end the host.
std::size_t fileSizeLimit() {
  rlimit limit{};
  const bool isLimited = ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
  return isLimited ? sizeFrom(limit.rlim_cur) : std::numeric_limits<std::size_t>::max();
}

void checkSize(std::size_t end, std::size_t limit) {
  if (end > limit) throw std::system_error(EFBIG, std::generic_category(), "the journal");
}

}  // namespace

std::vector<std::string> Journal::segmentsIn(const platform::PrivateFolder& folder) {
  std::vector<std::string> segments;
  for (std::string& name : folder.names()) {
    if (numberOf(name) != 0) segments.push_back(std::move(name));
  }
  std::ranges::sort(segments, {}, [](const std::string& name) { return numberOf(name); });
  return segments;
}

Journal::Journal(const platform::PrivateFolder& folder) : run_(random64()) {
  try {
    current_ = begin(folder);
  } catch (const std::system_error& error) {
    const int code = error.code().value();
    if (code != ENOSPC && code != EDQUOT && code != EIO) throw;
    current_ = std::make_unique<Segment>(Segment{random64(), {}, {}, fileSizeLimit()});
  }
}

// Never a number that was used, be its file erased meanwhile.
std::unique_ptr<Journal::Segment> Journal::begin(const platform::PrivateFolder& folder) {
  const std::size_t limit = fileSizeLimit();
  checkSize(journalHeaderSize, limit);
  const auto segments = segmentsIn(folder);
  if (!segments.empty()) number_ = std::max(number_, numberOf(segments.back()));
  auto segment = std::make_unique<Segment>(Segment{random64(), {}, {}, limit});
  while (!segment->file) {
    segment->name = nameOf(++number_);
    segment->file = folder.create(segment->name);
  }
  try {
    writeAt(segment->file.get(), journalHeader(segment->id, run_), 0);
  } catch (const std::exception&) {
    folder.remove(segment->name);
    throw;
  }
  return segment;
}

void Journal::append(const MessageView& message) {
  constexpr std::size_t mostKept = 16UL * 1024;
  const platform::MutexLock lock(mutex_);
  const std::uint64_t ordinal = ordinal_ + 1;
  record_ = journalRecord(message, ordinal, std::move(record_));
  const std::size_t end = end_ + record_.size();
  checkSize(end, current_->sizeLimit);
  writeAt(current_->file.get(), record_, end_);
  if (record_.capacity() > mostKept) record_ = {};
  ordinal_ = ordinal;
  bytes_ += message.body.size();
  end_ = end;
}

Journal::Written Journal::written() {
  const platform::MutexLock lock(mutex_);
  return {end_, ordinal_, bytes_};
}

Journal::Written Journal::clear() {
  const platform::MutexLock lock(mutex_);
  if (::ftruncate(current_->file.get(), static_cast<off_t>(journalHeaderSize)) != 0) {
    throw std::system_error(errno, std::generic_category(), "the journal");
  }
  synced_ = 0;
  return {end_.exchange(journalHeaderSize), ordinal_, bytes_};
}

void Journal::sync(const platform::PrivateFolder& folder) {
  const std::size_t end = end_;
  if (synced_ == end) return;
  if (::fdatasync(current_->file.get()) != 0) {
    throw std::system_error(errno, std::generic_category(), "the journal");
  }
  if (synced_ == 0) folder.sync();
  synced_ = end;
}

std::pair<std::unique_ptr<Journal::Segment>, std::size_t> Journal::rotate(
    const platform::PrivateFolder& folder) {
  auto next = begin(folder);
  const platform::MutexLock lock(mutex_);
  std::swap(current_, next);
  synced_ = 0;
  return {std::move(next), end_.exchange(journalHeaderSize)};
}

}  // namespace vantamo::core
