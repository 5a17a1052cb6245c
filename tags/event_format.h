#pragma once

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>

#include "vantamo/text.h"

/// What an event consists of, written once. Both tag builders, the required tests, the parameters
/// dictionary, the command-line program and docs/wire-format.md are driven by these tables.
///
/// A tag has this order on the wire (a query string keeps it, a map does not):
///
///   ci vn2 st vn1 ec | tid, leading values, plain fields, trailing values,
///                      optional fields, numbered attributes, ha1 | ul? cjen cjuid cjsid cjvf
namespace vantamo::tags {

/// How a field gets onto the wire.
enum class Form {
  plain,       ///< always; an absent value prints "(null)" in a query string, drops out of a map
  printed,     ///< as plain, but an absent value prints "(null)" in a map too
  mapOnly,     ///< as plain in a map; never in a query string
  optional,    ///< when present
  paired,      ///< when every paired field of the event is present
  marketing,   ///< when present, inside the tag's `ul`
  attributes,  ///< when present, as numbered keys
};

/// One argument of an event.
template <class Event>
struct Field {
  /// The facade's argument name; also its name in the parameters dictionary and the limits.
  std::string_view argument;
  /// The wire key; empty for attributes.
  std::string_view key;
  /// Where it stands in the aggregate: one of the two.
  Text Event::*text = nullptr;
  TextList Event::*list = nullptr;
  Form form = Form::plain;
  /// The name used in "... is required"; empty for an argument that may be missing.
  std::string_view required = {};
  /// The place of its required test among those of the event, from 1.
  int requiredOrder = 0;
  /// Whether it enters the parameters dictionary, and so whether limits apply to it.
  bool checked = true;
  /// Whether the module replaces an absent value by "" before the tag is built.
  bool filled = true;
};

/// Where the value of a key that is no argument comes from.
enum class Source { constant, screenWidth, screenHeight, sendTime };

struct FixedValue {
  std::string_view key;
  std::string_view constant;
  Source source = Source::constant;
};

template <class Event>
struct EventFormat {
  /// The facade's name of the event and its name in the table of limits; empty for none.
  std::string_view name;
  std::string_view facadeOperation;
  std::string_view moduleOperation;
  /// `tid`.
  int code = 0;
  std::span<const Field<Event>> fields;
  std::span<const FixedValue> leading = {};
  std::span<const FixedValue> trailing = {};
  /// Whether a digest of the attributes follows them.
  bool digest = false;

  [[nodiscard]] constexpr const Field<Event>* attributes() const {
    const auto field = std::ranges::find(fields, Form::attributes, &Field<Event>::form);
    return field == fields.end() ? nullptr : &*field;
  }
};

/// The letters before the number in an attribute's key, by event code; empty for other codes.
[[nodiscard]] constexpr std::string_view attributePrefix(int code) {
  switch (code) {
    case 1:
    case 6: return "pv";
    case 2: return "rg";
    case 3: return "o";
    case 4: return "s";
    case 5: return "pr";
    case 14: return "c";
    case 15: return "e";
    default: return "";
  }
}

/// What stands between those letters and the number.
[[nodiscard]] constexpr std::string_view attributeInfix(int code) { return code == 2 ? "" : "_a"; }

/// Attributes past this number stay off the wire.
inline constexpr std::size_t mostAttributes = 50;

/// Stands between the elements of a list that travels as one string.
inline constexpr std::string_view listSeparator = "-_-";

}  // namespace vantamo::tags
