#include "cores/default/spool.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "cores/default/size_from.h"
#include "platform/random.h"
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

const std::string salvagePrefix = std::string(QueueStore::fileName) + ".salvage-";
const std::string asidePrefix = std::string(QueueStore::fileName) + ".aside-";

template <class Item, class Sought>
bool contains(const std::vector<Item>& items, const Sought& sought) {
  return std::ranges::find(items, sought) != items.end();
}

// A database to be read, and not what stands beside one.
bool isSalvage(const std::string& name) {
  return name.starts_with(salvagePrefix) && !name.ends_with("-wal") && !name.ends_with("-journal");
}

// A process that was killed may have renamed the log and not yet the database.
void finishSettingAside(const platform::PrivateFolder& folder) {
  const auto names = folder.names();
  for (const std::string& name : names) {
    const std::string database = name.substr(0, name.rfind('-'));
    const bool isLog = name.starts_with(salvagePrefix) && !isSalvage(name);
    if (isLog && !contains(names, database) && contains(names, QueueStore::fileName)) {
      folder.rename(QueueStore::fileName, database);
      return;
    }
  }
}

std::size_t sizeOf(const platform::UniqueFd& file) {
  struct stat info {};
  return ::fstat(file.get(), &info) == 0 ? sizeFrom(info.st_size) : 0;
}

}  // namespace

bool Spool::holdsMessages(const platform::PrivateFolder& folder) {
  const auto names = folder.names();
  return contains(names, QueueStore::fileName) || std::ranges::any_of(names, &isSalvage) ||
         !Journal::segmentsIn(folder).empty();
}

// The log first: beside another database it would be taken for that one's.
void Spool::setDatabaseAside(const platform::PrivateFolder& folder) {
  const std::string name = QueueStore::fileName;
  const std::string kept = salvagePrefix + platform::randomUuid();
  const auto present = folder.names();
  for (const char* part : {"-wal", "-journal", ""}) {
    if (contains(present, name + part)) folder.rename(name + part, kept + part);
  }
}

Spool::Spool(const platform::PrivateFolder& folder, const std::vector<std::uint64_t>& live) {
  openStore(folder);
  marks_.emplace(folder.open("delivered").fd);
  const auto delivered = marks_->read();
  leaveOut(delivered);
  importLeftSegments(folder, live);
  if (!delivered.empty()) store_->removeById(delivered);
}

void Spool::openStore(const platform::PrivateFolder& folder) {
  finishSettingAside(folder);
  if (folder.isHardLink(QueueStore::fileName)) setDatabaseAside(folder);
  const std::string log = std::string(QueueStore::fileName) + "-wal";
  // The log of an erased database would be taken for the new one's.
  if (!contains(folder.names(), QueueStore::fileName)) folder.setAside(log);
  // Whatever else stands in the place of these two would be written through.
  folder.open(QueueStore::fileName);
  folder.open(log);
  try {
    store_ = std::make_unique<QueueStore>(folder);
  } catch (const DamagedStore& damage) {
    report("The queue's file in %@ is damaged: %@", folder.path(), damage.what());
    setDatabaseAside(folder);
    store_ = std::make_unique<QueueStore>(folder);
  }
  readSetAside(folder);
}

void Spool::readSetAside(const platform::PrivateFolder& folder) {
  for (const std::string& name : folder.names()) {
    if (!isSalvage(name)) continue;
    Salvage kept = salvage(folder.pathOf(name));
    leaveOut(store_->ids());
    const auto isKnown = [this](const Message& message) { return known_.contains(message.id); };
    std::erase_if(kept.messages, isKnown);
    std::erase_if(kept.deadLetters, isKnown);
    store_->import({kept.messages.begin(), kept.messages.end()}, 0, 0);
    store_->importDead(kept.deadLetters);
    leaveOut(store_->ids());
    report("%@ messages and %@ dead letters were saved", std::to_string(kept.messages.size()),
           std::to_string(kept.deadLetters.size()));
    const std::string aside = asidePrefix + name.substr(salvagePrefix.size());
    for (const char* part : {"-wal", "-journal", ""}) {
      if (contains(folder.names(), name + part)) folder.rename(name + part, aside + part);
    }
  }
}

void Spool::leaveOut(const std::vector<std::string>& ids) { known_.insert(ids.begin(), ids.end()); }

std::size_t Spool::positionIn(const Journal::Segment& segment) {
  return std::max(journalHeaderSize, store_->importedOf(segment.id));
}

void Spool::importLeftSegments(const platform::PrivateFolder& folder,
                               const std::vector<std::uint64_t>& live) {
  for (const std::string& name : Journal::segmentsIn(folder)) {
    Journal::Segment segment{0, name, folder.open(name).fd};
    const JournalHeader header =
        readJournalHeader(readAt(segment.file.get(), 0, journalHeaderSize));
    segment.id = header.segment;
    if (segment.id != 0 && contains(live, segment.id)) continue;
    std::size_t position = segment.id == 0 ? 0 : positionIn(segment);
    // Imported under another database, perhaps.
    if (position <= journalHeaderSize) leaveOut(store_->ids());
    import(segment, header.run, position, sizeOf(segment.file));
    discard(folder, segment);
  }
}

bool Spool::import(const Journal::Segment& segment, std::uint64_t run, std::size_t& position,
                   std::size_t end) {
  bool whole = true;
  for (std::size_t chunk = usualChunk; position < end;) {
    const std::size_t size = std::min(chunk, end - position);
    const std::string bytes = readAt(segment.file.get(), position, size);
    const bool cutShort = bytes.size() < size;
    JournalBytes read = readJournal(bytes, run, cutShort || position + size == end);
    if (read.next == 0 && !cutShort) {
      chunk = largestChunk;  // a record that is larger than the usual chunk
      continue;
    }
    if (read.damaged > 0 || cutShort) {
      whole = false;
      damaged_.insert(segment.id);
      report("%@ bytes of %@ are no messages", std::to_string(read.damaged + size - bytes.size()),
             segment.name);
    }
    std::erase_if(read.messages, [this](const Message& message) {
      return known_.contains(message.id) || !isMessageId(message.id);
    });
    const std::size_t next = cutShort ? end : position + read.next;
    store_->import(read.messages, segment.id, next);
    position = next;
    chunk = usualChunk;
  }
  return whole;
}

void Spool::discard(const platform::PrivateFolder& folder, const Journal::Segment& segment) {
  const bool damaged = damaged_.erase(segment.id) > 0;
  // Another file may have its name by now.
  if (folder.holds(segment.name, segment.file)) {
    if (damaged) {
      folder.setAside(segment.name);
    } else {
      folder.remove(segment.name);
    }
  }
  if (segment.id != 0) store_->forgetSegment(segment.id);
}

}  // namespace vantamo::core
