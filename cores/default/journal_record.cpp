#include "cores/default/journal_record.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace vantamo::core {
namespace {

constexpr std::string_view headerMark = "VTJRNL01";
constexpr std::string_view recordMark = "VTR1";
constexpr std::size_t frameSize = 12;
constexpr std::size_t fixedSize = 20;
constexpr std::size_t largestRest = fixedSize + 2UL * 0xffff + largestMessage;

template <class Number>
void put(std::string& out, Number number) {
  std::array<char, sizeof number> bytes{};
  std::memcpy(bytes.data(), &number, sizeof number);
  out.append(bytes.data(), bytes.size());
}

template <class Number>
Number get(std::string_view bytes, std::size_t position) {
  Number number{};
  std::memcpy(&number, bytes.substr(position, sizeof number).data(), sizeof number);
  return number;
}

std::uint32_t checksum(std::string_view bytes) {
  return static_cast<std::uint32_t>(
      ::crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

enum class Frame { whole, unfinished, damaged };

// Judges what stands at the beginning of `bytes`; `rest` is set for a whole record.
Frame frameAt(std::string_view bytes, std::string_view& rest) {
  const std::size_t markSeen = std::min(bytes.size(), recordMark.size());
  if (bytes.substr(0, markSeen) != recordMark.substr(0, markSeen)) return Frame::damaged;
  if (bytes.size() < frameSize) return Frame::unfinished;
  const auto size = get<std::uint32_t>(bytes, 4);
  if (size < fixedSize || size > largestRest) return Frame::damaged;
  if (bytes.size() - frameSize < size) return Frame::unfinished;
  rest = bytes.substr(frameSize, size);
  const std::size_t names =
      std::size_t{get<std::uint16_t>(rest, 16)} + get<std::uint16_t>(rest, 18);
  const bool sound = checksum(rest) == get<std::uint32_t>(bytes, 8) && fixedSize + names <= size;
  return sound ? Frame::whole : Frame::damaged;
}

Message messageOf(std::string_view rest, std::uint64_t run) {
  const std::size_t idSize = get<std::uint16_t>(rest, 16);
  const std::size_t moduleSize = get<std::uint16_t>(rest, 18);
  Message message;
  message.ordinal = get<std::uint64_t>(rest, 0);
  message.accepted = get<std::int64_t>(rest, 8);
  message.run = run;
  message.id = rest.substr(fixedSize, idSize);
  message.moduleName = rest.substr(fixedSize + idSize, moduleSize);
  message.body = rest.substr(fixedSize + idSize + moduleSize);
  return message;
}

}  // namespace

std::string journalHeader(std::uint64_t segment, std::uint64_t run) {
  std::string header(headerMark);
  put(header, segment);
  put(header, run);
  return header;
}

std::string journalRecord(const MessageView& message, std::uint64_t ordinal, std::string reused) {
  const std::size_t size =
      fixedSize + message.id.size() + message.moduleName.size() + message.body.size();
  if (std::max(message.id.size(), message.moduleName.size()) > 0xffff || size > largestRest) {
    throw std::length_error("the message is too large to keep");
  }
  std::string record = std::move(reused);
  record.clear();
  record.reserve(frameSize + size);
  record.append(recordMark);
  put(record, static_cast<std::uint32_t>(size));
  put(record, std::uint32_t{0});
  put(record, ordinal);
  put(record, message.accepted);
  put(record, static_cast<std::uint16_t>(message.id.size()));
  put(record, static_cast<std::uint16_t>(message.moduleName.size()));
  record.append(message.id).append(message.moduleName).append(message.body);
  const std::uint32_t sum = checksum(std::string_view(record).substr(frameSize));
  std::memcpy(record.data() + 8, &sum, sizeof sum);
  return record;
}

JournalBytes readJournal(std::string_view bytes, std::uint64_t run, bool last) {
  JournalBytes read;
  while (read.next < bytes.size()) {
    std::string_view rest;
    const Frame frame = frameAt(bytes.substr(read.next), rest);
    if (frame == Frame::whole) {
      read.messages.push_back(messageOf(rest, run));
      read.next += frameSize + rest.size();
      continue;
    }
    if (frame == Frame::unfinished && !last) break;
    const std::size_t following =
        std::min(bytes.find(recordMark.front(), read.next + 1), bytes.size());
    read.damaged += following - read.next;
    read.next = following;
  }
  return read;
}

JournalHeader readJournalHeader(std::string_view bytes) {
  if (bytes.size() < journalHeaderSize || !bytes.starts_with(headerMark)) return {};
  return {get<std::uint64_t>(bytes, 8), get<std::uint64_t>(bytes, 16)};
}

}  // namespace vantamo::core
