#include "cores/default/spool.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "support/debug_log.h"

namespace vantamo::core {
namespace {

constexpr const char* operation = "-[NQCore openQueue]";
constexpr std::size_t usualChunk = 256UL * 1024;
constexpr std::size_t largestChunk = 2UL * largestMessage;  // more than any record

void report(std::string_view format, std::string_view first, std::string_view second) {
  support::debugLog(operation, [&] { return support::withValues(format, first, second); });
}

std::string readAt(int fd, std::size_t position, std::size_t size) {
  std::string bytes(size, '\0');
  std::size_t got = 0;
  while (got < size) {
    const ssize_t part =
        ::pread(fd, bytes.data() + got, size - got, static_cast<off_t>(position + got));
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) throw std::system_error(errno, std::generic_category(), "the journal");
    if (part == 0) break;
    got += static_cast<std::size_t>(part);
  }
  bytes.resize(got);
  return bytes;
}

std::size_t sizeOf(const platform::UniqueFd& file) {
  struct stat info {};
  return ::fstat(file.get(), &info) == 0 ? static_cast<std::size_t>(info.st_size) : 0;
}

}  // namespace

bool Spool::holdsMessages(const platform::PrivateFolder& folder) {
  const auto names = folder.names();
  return std::ranges::find(names, QueueStore::fileName) != names.end() ||
         !Journal::segmentsIn(folder).empty();
}

std::string Spool::setDatabaseAside(const platform::PrivateFolder& folder) {
  const std::string name = QueueStore::fileName;
  std::string aside = folder.setAside(name);
  for (const char* companion : {"-wal", "-journal"}) {
    const std::string kept = folder.setAside(name + companion);
    if (!kept.empty() && !aside.empty()) folder.rename(kept, aside + companion);
  }
  return aside;
}

Spool::Spool(const platform::PrivateFolder& folder, std::uint64_t live, std::string aside) {
  openStore(folder, std::move(aside));
  marks_.emplace(folder.open("delivered").fd);
  importLeftSegments(folder, live);
  if (const auto ids = marks_->read(); !ids.empty()) store_->removeById(ids);
}

void Spool::openStore(const platform::PrivateFolder& folder, std::string aside) {
  if (std::string link = folder.open(QueueStore::fileName).setAside; aside.empty()) {
    aside = std::move(link);
  }
  // A log that is a link would be written through.
  folder.open(std::string(QueueStore::fileName) + "-wal");
  try {
    store_ = std::make_unique<QueueStore>(folder);
  } catch (const DamagedStore& damage) {
    aside = setDatabaseAside(folder);
    report("The queue's file was damaged (%@) and is kept as %@", damage.what(), aside);
    store_ = std::make_unique<QueueStore>(folder);
  }
  if (aside.empty()) return;
  const Salvage kept = salvage(folder.pathOf(aside));
  store_->import({kept.messages.begin(), kept.messages.end()}, 0, 0);
  store_->importDead(kept.deadLetters);
  for (std::string& id : store_->ids()) known_.insert(std::move(id));
  report("%@ messages and %@ dead letters were saved from it", std::to_string(kept.messages.size()),
         std::to_string(kept.deadLetters.size()));
}

void Spool::importLeftSegments(const platform::PrivateFolder& folder, std::uint64_t live) {
  for (const std::string& name : Journal::segmentsIn(folder)) {
    Journal::Segment segment{0, name, folder.open(name).fd};
    const JournalHeader header =
        readJournalHeader(readAt(segment.file.get(), 0, journalHeaderSize));
    segment.id = header.segment;
    if (segment.id == live && live != 0) continue;
    const std::size_t end = sizeOf(segment.file);
    const std::size_t begin = std::max(journalHeaderSize, store_->importedOf(segment.id));
    import(segment, header.run, header.segment == 0 ? 0 : begin, end);
    discard(folder, segment);
  }
}

Spool::Imported Spool::import(const Journal::Segment& segment, std::uint64_t run,
                              std::size_t position, std::size_t end) {
  Imported total{position, 0, 0};
  for (std::size_t chunk = usualChunk; total.position < end;) {
    const std::size_t size = std::min(chunk, end - total.position);
    const std::string bytes = readAt(segment.file.get(), total.position, size);
    const bool cutShort = bytes.size() < size;
    const bool last = cutShort || total.position + size == end || chunk == largestChunk;
    JournalBytes read = readJournal(bytes, run, last);
    if (read.next == 0 && !cutShort) {
      chunk = largestChunk;
      continue;
    }
    if (read.damaged > 0 || cutShort) {
      damaged_.insert(segment.id);
      report("%@ bytes of %@ are no messages", std::to_string(read.damaged + size - bytes.size()),
             segment.name);
    }
    std::erase_if(read.messages, [this](const Message& message) {
      return known_.contains(message.id) || !isMessageId(message.id);
    });
    total.position = cutShort ? end : total.position + read.next;
    store_->import(read.messages, segment.id, total.position);
    total.messages += read.messages.size();
    for (const Message& message : read.messages) total.bytes += message.body.size();
    chunk = usualChunk;
  }
  return total;
}

void Spool::discard(const platform::PrivateFolder& folder, const Journal::Segment& segment) {
  if (damaged_.erase(segment.id) > 0) {
    folder.setAside(segment.name);
  } else {
    folder.remove(segment.name);
  }
  if (segment.id != 0) store_->forgetSegment(segment.id);
}

}  // namespace vantamo::core
