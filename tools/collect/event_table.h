#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tags/event_format.h"
#include "vantamo/value.h"

/// The event tables as one reads them from the wire's side: by `tid` and key, whatever the
/// aggregate.
namespace vantamo::tools::collect {

/// The built-in limits of one argument; 0 is none.
struct ArgumentLimits {
  bool refusesEmpty = false;
  std::size_t length = 0;
  std::size_t count = 0;
};

struct WireField {
  std::string_view argument;
  /// Empty for attributes.
  std::string_view key;
  tags::Form form = tags::Form::plain;
  bool isList = false;
  /// The name used in "... is required"; empty when the argument may be missing.
  std::string_view required;
  ArgumentLimits limits;
};

struct WireEvent {
  /// The facade's name of the event.
  std::string_view name;
  /// `tid`.
  int code = 0;
  bool technicalProperties = false;
  bool digest = false;
  std::vector<WireField> fields;
  /// The keys with values that are no arguments.
  std::vector<tags::FixedValue> fixed;
  /// The letters before an attribute's number; empty for an event without attributes.
  std::string attributeStem;

  [[nodiscard]] const WireField* field(std::string_view key) const;
  [[nodiscard]] const WireField* attributes() const;
  [[nodiscard]] const tags::FixedValue* fixedValue(std::string_view key) const;
  /// Whether one of its arguments has this name.
  [[nodiscard]] bool hasArgument(std::string_view argument) const;
  /// The number of an attribute's key, from 1; nothing for any other key.
  [[nodiscard]] std::optional<std::size_t> attributeNumber(std::string_view key) const;
};

/// Every event, the technical properties last.
[[nodiscard]] std::span<const WireEvent> wireEvents();

/// The event that a tag is, by `tid` and `at`; a null pointer for none.
[[nodiscard]] const WireEvent* eventOf(const Value::Map& tag);

/// Whether `name` is a facade's event.
[[nodiscard]] bool isEventName(std::string_view name);

}  // namespace vantamo::tools::collect
