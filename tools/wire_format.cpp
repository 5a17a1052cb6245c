// Writes docs/wire-format.md from the event tables and the table of limits; a test holds the file
// to it. Usage: vantamo_wire_format > docs/wire-format.md

#include <algorithm>
#include <iostream>
#include <string>

#include "constraints/vt_constraints_checker.h"
#include "tags/event_formats.h"

namespace {

using namespace vantamo::tags;

std::string code(std::string_view text) { return std::string("`").append(text).append("`"); }

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

template <class Event>
void writeEvent(const EventFormat<Event>& format) {
  std::cout << "\n### " << code(format.name) << "\n\nWritten first: " << code("tid") << " = "
            << code(std::to_string(format.code));
  for (const auto& value : format.leading) {
    std::cout << ", " << code(value.key) << " = "
              << (value.source == Source::constant ? code(value.constant)
                                                   : "the time of the click, as `st`");
  }
  for (const auto& value : format.trailing) {
    std::cout << "; after the keys that are always written: " << code(value.key) << " = "
              << code(value.constant);
  }
  std::cout << ".\n\n| argument | key | required | written | limits |\n|---|---|---|---|---|\n";
  for (const auto& field : format.fields) {
    const std::string order = field.required.empty() ? ""
                                                     : std::to_string(field.requiredOrder) + ", " +
                                                           std::string(field.required);
    std::cout << "| " << code(field.argument) << " | " << keyOf(format, field) << " | " << order
              << " | " << whenWritten(field.form) << " | "
              << (field.checked ? limitsOf(format.name, field.argument) : "not checked") << " |\n";
  }
}

constexpr std::string_view introduction = R"(# The wire format

<!-- Written by vantamo_wire_format from the event tables in the code: change those, then run it. -->

Each event becomes one *tag*: short keys with string values. The core posts it as one JSON object, in
one `POST` with `Content-Type: application/json`; a message counts as delivered when the server
answers 2xx. Every attempt to deliver a message carries the same `Idempotency-Key` header.

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

Values go out as the host gave them: nothing is escaped or trimmed. Only ill-formed UTF-8 is
repaired, each ill-formed sequence as one U+FFFD. Fired events carry `""` for optional strings that
were left out.

## The first page view of a session

It is sent as technical properties in place of a page view: `tid` = `6`, `pc` = `Y`, `pd` = `24`,
`sw` and `sh` (the main screen in logical points), then the page view's own keys. Four headers go
with it: `VT-OS`, `VT-MobileDevice`, `VT-DeviceType` (`PHONE` or `TABLET`), `VT-OSVersion`.

## Events

*Required* tells the order in which arguments are tested and the name used in the debug log; an event
without one of them is refused. *Limits* are checked after the tag has gone out and decide only the
answer of the call; lengths are counted in UTF-16 code units. Lists under one key travel as one
string, their elements joined with `-_-`. At most 50 attributes are written; the digest `ha1` is the
SHA-1 of all of them, joined in the same way.
)";

}  // namespace

int main() {
  std::cout << introduction;
  forEachEvent([](const auto& format) { writeEvent(format); });
  return std::cout.flush() ? 0 : 1;
}
