// Whatever a journal holds, reading ends, takes every whole record and nothing that is none.

#include "cores/default/journal_record.h"
#include "fuzz/fuzz.h"

void vantamo::fuzz::check(std::string_view input) {
  const std::size_t half = input.size() / 2;
  const std::string id = "0a1b2c3d-0a1b-4c2d-8e3f-0a1b2c3d4e5f";
  const core::Message known{id, "VTMod", std::string(input.substr(0, half)), 7, 0, 0};
  // Damage before and behind a record, which the damage may itself resemble.
  std::string bytes(input.substr(half));
  bytes += core::journalRecord(known, 5);
  bytes += input;
  const core::JournalBytes read = core::readJournal(bytes, 9, true);
  require(read.next == bytes.size(), "all bytes are judged");
  std::size_t taken = read.damaged;
  bool found = false;
  for (const core::Message& message : read.messages) {
    const std::string record = core::journalRecord(message, message.ordinal);
    require(bytes.find(record) != std::string::npos, "what is read stands there");
    taken += record.size();
    found = found || (message.id == id && message.body == known.body && message.ordinal == 5);
  }
  require(taken == bytes.size(), "each byte is a record's or damage");
  require(found || !read.messages.empty(), "a whole record is found, unless it is part of another");
  const core::JournalBytes unfinished = core::readJournal(bytes, 9, false);
  require(unfinished.next <= bytes.size() && unfinished.messages.size() <= read.messages.size(),
          "more may follow");
}
