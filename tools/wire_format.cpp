// Writes docs/wire-format.md from the event tables and the table of limits; a test holds the file
// to it. Usage: vantamo_wire_format > docs/wire-format.md

#include <algorithm>
#include <cctype>
#include <exception>
#include <iostream>
#include <string>
#include <utility>

#include "constraints/vt_constraints_checker.h"
#include "tags/event_formats.h"
#include "tools/event_texts.h"

namespace {

using namespace vantamo::tags;
using namespace vantamo::tools;

std::string code(std::string_view text) { return std::string("`").append(text).append("`"); }

// The anchor of an event's heading.
std::string lowered(std::string_view name) {
  std::string text(name);
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

std::string whenWritten(Form form) {
  switch (form) {
    case Form::plain: return "always";
    case Form::printed: return "always, as \"(null)\" when absent";
    case Form::mapOnly: return "always, in the map form only";
    case Form::optional: return "when given";
    case Form::paired: return "when both `se` and `sr` are given";
    case Form::marketing: return "when given, inside `ul`";
    case Form::attributes: return "when given";
  }
  return "";
}

template <class Event>
std::string keyOf(const EventFormat<Event>& format, const Field<Event>& field) {
  if (field.form != Form::attributes) return code(field.key);
  const std::string stem =
      std::string(attributePrefix(format.code)).append(attributeInfix(format.code));
  return code(stem + "1") + ", " + code(stem + "2") + " …" + (format.digest ? ", then `ha1`" : "");
}

std::string limitsOf(std::string_view event, std::string_view argument) {
  const auto limits = vantamo::constraints::builtInLimits();
  const auto limit = std::ranges::find_if(
      limits, [&](const auto& row) { return row.apiName == event && row.parameter == argument; });
  if (limit == limits.end()) return "";
  const bool isList = argument == "attributes" || argument.starts_with("vq");
  std::string text = std::to_string(limit->length) + (isList ? " each" : "");
  if (limit->count != 0) text = std::to_string(limit->count) + " entries, " + text;
  return text + (limit->required ? ", not empty" : "");
}

// The required arguments, in the order of the aggregate.
template <class Event, class Writer>
void forEachRequired(const EventFormat<Event>& format, Writer write) {
  bool first = true;
  for (const auto& field : format.fields) {
    if (field.required.empty()) continue;
    write(field, std::exchange(first, false));
  }
}

template <class Event>
void writeOverview(const EventFormat<Event>& format) {
  std::cout << "| [" << code(format.name) << "](#" << lowered(format.name) << ") | "
            << purposeOf(format.name) << " | ";
  forEachRequired(format, [](const auto& field, bool first) {
    std::cout << (first ? "" : ", ") << code(field.argument);
  });
  std::cout << " |\n";
}

template <class Event>
void writeExample(const EventFormat<Event>& format) {
  constexpr std::size_t widest = 100;
  const std::string call = std::string("Vantamo::").append(format.name).append("({");
  std::string line = call;
  std::cout << "```cpp\n";
  forEachRequired(format, [&](const auto& field, bool first) {
    const std::string member =
        "." + std::string(field.argument) + " = \"" + std::string(sampleOf(field.argument)) + "\"";
    if (!first && line.size() + member.size() + 4 > widest) {
      std::cout << line << ",\n";
      line = std::string(call.size(), ' ');
      first = true;
    }
    line += (first ? "" : ", ") + member;
  });
  std::cout << line << "});\n```\n";
}

template <class Event>
void writeFixedKeys(const EventFormat<Event>& format) {
  std::cout << "\nWritten first: " << code("tid") << " = " << code(std::to_string(format.code));
  for (const auto& value : format.leading) {
    std::cout << ", " << code(value.key) << " = "
              << (value.source == Source::constant ? code(value.constant)
                                                   : "the time of the click, as `st`");
  }
  for (const auto& value : format.trailing) {
    std::cout << "; after the keys that are always written: " << code(value.key) << " = "
              << code(value.constant);
  }
  std::cout << ".\n";
}

template <class Event>
void writeEvent(const EventFormat<Event>& format) {
  std::cout << "\n### " << code(format.name) << "\n\n" << purposeOf(format.name) << "\n\n";
  writeExample(format);
  std::cout << "\n| argument | | required | limits | key | written |\n|---|---|---|---|---|---|\n";
  for (const auto& field : format.fields) {
    const std::string order = field.required.empty() ? ""
                                                     : std::to_string(field.requiredOrder) + ", " +
                                                           std::string(field.required);
    std::cout << "| " << code(field.argument) << " | " << meaningOf(format.name, field.argument)
              << " | " << order << " | "
              << (field.checked ? limitsOf(format.name, field.argument) : "not checked") << " | "
              << keyOf(format, field) << " | " << whenWritten(field.form) << " |\n";
  }
  writeFixedKeys(format);
}

constexpr std::string_view introduction = R"(# Events, limits and the wire format

<!-- Written by vantamo_wire_format from the event tables in the code: change those, then run it. -->

An app reports an event with one call; its arguments have names, all values are text, and those that
are left out are absent. Each event becomes one *tag*: short keys with string values. The core posts
it as one JSON object, in one `POST` with `Content-Type: application/json`; a message counts as
delivered when the server answers 2xx. Every attempt to deliver a message carries the same
`Idempotency-Key` header.

| event | | required arguments |
|---|---|---|
)";

constexpr std::string_view rules = R"(
**Required** means present and not empty. An event without one of these is refused: the call answers
false, nothing is sent, and the debug log names the first one that is missing. The number in the
tables is the order of the tests, the name the one in the log.

**Limits** are checked after the tag has gone out and decide only the answer of the call: a value that
is too long is sent as it is, and the call answers false. Lengths are counted in UTF-16 code units, as
many string types of phones do. Of a list the number of entries and the length of each are limited.

**Lists** under one key travel as one string, their elements joined with `-_-`. At most 50 attributes
are written; the digest `ha1` is the SHA-1 of all of them, joined in the same way.

**Values** go out as the app gave them: nothing is escaped or trimmed. Only ill-formed UTF-8 is
repaired, each ill-formed sequence as one U+FFFD. Fired events carry `""` for optional strings that
were left out.

## In every tag

| key | value |
|---|---|
| `ci` | the client id; left out when none is active |
| `vn2` | `e4.0` |
| `st` | when the tag was built: whole seconds since 1970-01-01 UTC |
| `vn1` | `4.1.8` |
| `ec` | `UTF-8` |
| `ul` | `APP_APPLE_` and the application's name; with a marketing code `/?vq_mmc=` and the code follow |
| `cjen` | `1` |
| `cjuid` | the visitor id; `1000000000000003` in anonymous mode |
| `cjsid` | the session id |
| `cjvf` | `1` |

## The first page view of a session

It is sent as technical properties in place of a page view: `tid` = `6`, `pc` = `Y`, `pd` = `24`,
`sw` and `sh` (the main screen in logical points), then the page view's own keys. Four headers go
with it: `VT-OS`, `VT-MobileDevice`, `VT-DeviceType` (`PHONE` or `TABLET`), `VT-OSVersion`.

## The events
)";

}  // namespace

int main() {
  try {
    std::cout << introduction;
    forEachEvent([](const auto& format) { writeOverview(format); });
    std::cout << rules;
    forEachEvent([](const auto& format) { writeEvent(format); });
    return std::cout.flush() ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "vantamo_wire_format: " << error.what() << '\n';
    return 1;
  }
}
