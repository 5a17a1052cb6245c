#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cores/default/message_queue.h"

namespace vantamo::core {

// A journal segment is a file of one header and any number of records, in the machine's byte order:
//
//   header   "VTJRNL01"  segment (8)  run (8)
//   record   "VTR1"  size of the rest (4)  CRC-32 of the rest (4)
//            | ordinal (8)  accepted (8)  length of id (2)  length of module (2)  id  module  body
//
// A record that is not whole, or damaged, is passed over: reading goes on at the next one that is.

/// The bytes that a segment begins with.
[[nodiscard]] std::string journalHeader(std::uint64_t segment, std::uint64_t run);

/// The record of one message, in the memory of `reused`. Its id and module name are at most 65,535
/// bytes long.
[[nodiscard]] std::string journalRecord(const MessageView& message, std::uint64_t ordinal,
                                        std::string reused = {});

struct JournalBytes {
  std::vector<Message> messages;
  /// Where reading is to go on: behind the last whole record, or behind everything when the bytes
  /// are the last ones.
  std::size_t next = 0;
  /// Bytes passed over because they are no records.
  std::size_t damaged = 0;
};

/// The records in `bytes`. `last`: nothing follows, so that what is left over at
/// the end is damage and not the beginning of a record.
[[nodiscard]] JournalBytes readJournal(std::string_view bytes, std::uint64_t run, bool last);

struct JournalHeader {
  std::uint64_t segment = 0;
  std::uint64_t run = 0;
};
inline constexpr std::size_t journalHeaderSize = 24;

/// Zeros when `bytes` do not begin with a header.
[[nodiscard]] JournalHeader readJournalHeader(std::string_view bytes);

}  // namespace vantamo::core
