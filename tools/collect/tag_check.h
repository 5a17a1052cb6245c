#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/collect/event_table.h"
#include "vantamo/value.h"

namespace vantamo::tools::collect {

/// One thing that is wrong with a tag.
struct Problem {
  /// The wire key it is about; empty when it is about the tag as a whole.
  std::string key;
  /// In words, as one line: key, argument and what is wrong.
  std::string text;

  friend bool operator==(const Problem&, const Problem&) = default;
};

/// A body as the inspector understands it.
struct TagReading {
  /// The JSON object; empty when the body is none.
  Value::Map tag;
  /// How many values are in it, nested ones too.
  std::size_t values = 0;
  /// Null for an unknown event and for a body that is no tag.
  const WireEvent* event = nullptr;
  std::vector<Problem> problems;

  [[nodiscard]] std::string_view text(std::string_view key) const {
    return tag.stringAt(key).value_or("");
  }
  [[nodiscard]] std::string_view eventName() const {
    return event == nullptr ? std::string_view() : event->name;
  }
};

/// Beyond so many problems of one tag the last one tells how many more there are.
inline constexpr std::size_t mostProblems = 50;

/// An object of more keys is not looked into: a tag has not half as many, and each costs time.
inline constexpr std::size_t mostKeys = 300;
/// Nor is a body of more values, nested ones counted: parsed, each takes many times its text.
inline constexpr std::size_t mostValues = 2'000;

/// The visitor id of everybody who is counted anonymously.
inline constexpr std::string_view anonymousVisitorId = "1000000000000003";

/// Reads a posted body and holds it against the event table, the limits and what is in every tag.
/// `now` is in seconds since 1970. A pure function of any bytes; never throws for what they are.
[[nodiscard]] TagReading readTag(std::string_view body, double now);

/// What a key of an event means, in words; empty when the event has no such key.
[[nodiscard]] std::string meaningOf(const WireEvent* event, std::string_view key);

/// The marketing code in a tag's `ul`, its list joined; nothing when there is none.
[[nodiscard]] std::optional<std::string_view> marketingCodeOf(const Value::Map& tag);

/// The attributes of a tag, up to the first number that is missing.
[[nodiscard]] std::vector<std::string> attributesOf(const WireEvent& event, const Value::Map& tag);

}  // namespace vantamo::tools::collect
