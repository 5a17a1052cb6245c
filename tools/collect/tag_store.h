#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/collect/faults.h"
#include "tools/collect/session_book.h"
#include "tools/collect/tag_check.h"

namespace vantamo::tools::collect {

/// One POST as it came in.
struct Post {
  std::string path;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  /// Milliseconds since 1970.
  std::int64_t received = 0;
  /// Whether it was too large to be read.
  bool tooLarge = false;

  /// A header's value, its name in any case; empty when it was not sent.
  [[nodiscard]] std::string_view header(std::string_view name) const;
};

struct StoredTag {
  /// From 1, never used again, also not after a reset.
  std::uint64_t sequence = 0;
  TagReading reading;
  std::vector<std::pair<std::string, std::string>> headers;
  std::vector<Problem> problems;
  /// The first attempt to post the same message.
  std::optional<std::uint64_t> repeatOf;
  /// The first attempt that was answered 2xx: what is counted and expected.
  bool counts = false;
  /// All of it as one JSON object in one line.
  std::string json;
};

using Tag = std::shared_ptr<const StoredTag>;

/// Is told what happens to a store, on the thread that changes it.
class StoreObserver {
 public:
  virtual ~StoreObserver() = default;
  virtual void stored(const Tag& tag) = 0;
  virtual void wasReset() = 0;
};

/// Keeps the newest tags, up to a number and a size. One thread uses it.
class TagStore {
 public:
  static constexpr std::size_t mostTags = 10'000;
  /// Of JSON text and parsed values; the texts of these take about as much as the JSON again.
  static constexpr std::size_t mostBytes = std::size_t{48} << 20U;

  void observe(StoreObserver* observer) { observer_ = observer; }
  Tag add(Post post, const Verdict& verdict);
  void reset();

  /// Oldest first, their sequence numbers without a gap.
  [[nodiscard]] const std::deque<Tag>& tags() const { return tags_; }
  /// The oldest one that came after `sequence`; a null pointer for none.
  [[nodiscard]] Tag firstAfter(std::uint64_t sequence) const;
  [[nodiscard]] std::uint64_t lastSequence() const { return last_; }
  /// The sequence number that the last reset took for itself; 0 for none.
  [[nodiscard]] std::uint64_t resetAt() const { return resetAt_; }
  /// How many have made room for newer ones since the last reset.
  [[nodiscard]] std::uint64_t dropped() const { return dropped_; }

 private:
  struct Message {
    std::uint64_t first = 0;
    bool delivered = false;
    /// What was wrong between it and the tags before it, which holds for every attempt.
    std::vector<Problem> ofSession;
  };

  void dropOldest();

  StoreObserver* observer_ = nullptr;
  std::deque<Tag> tags_;
  std::size_t bytes_ = 0;
  std::uint64_t last_ = 0;
  std::uint64_t resetAt_ = 0;
  std::uint64_t dropped_ = 0;
  SessionBook sessions_;
  // By Idempotency-Key, for as long as the first attempt is kept.
  std::map<std::string, Message, std::less<>> messages_;
  std::map<std::uint64_t, std::string> keys_;
};

}  // namespace vantamo::tools::collect
