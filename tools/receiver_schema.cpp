// Writes docs/clickhouse.sql, the tables that receive tags, from the event tables in the code; a
// test holds the file to it. Usage: vantamo_receiver_schema > docs/clickhouse.sql

#include <algorithm>
#include <array>
#include <iostream>
#include <string>
#include <vector>

#include "tags/event_formats.h"

namespace {

using namespace vantamo::tags;

enum class Reading { text, number, time, storedTime, none };

// One wire key.
struct Column {
  std::string key;
  // Its name in the view of events; unused where it is not read.
  std::string name;
  std::string meaning;
  Reading reading = Reading::text;
};

using Columns = std::vector<Column>;

Columns envelope() {
  return {
      {"tid", "", "what kind of event", Reading::none},
      {"at", "", "5 for a cart line, 9 for a purchase line", Reading::none},
      {"st", "time", "when the tag was built: seconds since 1970-01-01 UTC", Reading::storedTime},
      {"ci", "clientId", "the client id"},
      {"cjuid", "visitorId", "the visitor id"},
      {"cjsid", "sessionId", "the session id"},
      {"ul", "location", "name of the application and marketing code"},
      {"vn1", "", "always 4.1.8", Reading::none},
      {"vn2", "", "always e4.0", Reading::none},
      {"ec", "", "always UTF-8", Reading::none},
      {"cjen", "", "always 1", Reading::none},
      {"cjvf", "", "always 1", Reading::none},
      {"pc", "", "Y, in the first page view of a session", Reading::none},
      {"pd", "", "24, in the first page view of a session", Reading::none},
      {"sw", "screenWidth", "logical points, in the first page view of a session", Reading::number},
      {"sh", "screenHeight", "logical points, in the first page view of a session",
       Reading::number},
      {"pflg", "", "always 0", Reading::none},
      {"ti", "clickTime", "when the link was clicked, as st", Reading::time},
      {"ha1", "attributesDigest", "the SHA-1 of all attributes of a cart or purchase line"},
  };
}

Reading readingOf(std::string_view argument) {
  constexpr std::array<std::string_view, 6> numbers = {"searchResult",   "quantity",
                                                       "baseUnitPrice",  "orderSubTotal",
                                                       "shippingCharge", "eventPoints"};
  return std::ranges::count(numbers, argument) > 0 ? Reading::number : Reading::text;
}

// A key that several events have stands once, under the name that the first one gives it.
template <class Event>
void addArguments(const EventFormat<Event>& format, Columns& columns) {
  for (const auto& field : format.fields) {
    if (field.form == Form::attributes || field.form == Form::marketing) continue;
    const std::string argument(field.argument);
    const auto known = std::ranges::find(columns, field.key, &Column::key);
    if (known == columns.end()) {
      columns.push_back({std::string(field.key), argument,
                         argument + " of " + std::string(format.name), readingOf(argument)});
    } else {
      known->meaning +=
          (argument == known->name ? ", " : ", " + argument + " of ") + std::string(format.name);
    }
  }
}

Columns allColumns() {
  Columns columns = envelope();
  forEachEvent([&columns](const auto& format) { addArguments(format, columns); });
  return columns;
}

std::string attributeKey(int code, std::size_t number) {
  return std::string(attributePrefix(code)).append(attributeInfix(code)) + std::to_string(number);
}

// The codes of events with attributes, one for each prefix.
std::vector<int> codesWithAttributes() {
  std::vector<int> codes;
  forEachEvent([&codes](const auto& format) {
    const bool known = std::ranges::any_of(
        codes, [&](int code) { return attributePrefix(code) == attributePrefix(format.code); });
    if (format.attributes() != nullptr && !known) codes.push_back(format.code);
  });
  return codes;
}

// `on` and others are words of the language too.
std::string quoted(std::string_view key) { return std::string("`").append(key).append("`"); }

// Words with commas between them, in lines of moderate length.
class WrappedList {
 public:
  explicit WrappedList(std::size_t indent) : indent_(indent, ' '), line_(indent_) {}

  void add(const std::string& word) {
    constexpr std::size_t width = 98;
    if (line_ != indent_) line_ += ",";
    if (line_.size() + word.size() + 2 > width) {
      text_ += line_ + "\n";
      line_ = indent_;
    }
    line_ += (line_ == indent_ ? "" : " ") + word;
  }
  [[nodiscard]] std::string text() const { return text_ + line_; }

 private:
  const std::string indent_;
  std::string text_;
  std::string line_;
};

// One line for each column.
template <class Write>
std::string lines(const Columns& columns, Write write) {
  std::string text;
  for (const Column& column : columns) {
    text += (text.empty() ? "  " : ",\n  ") + write(column);
  }
  return text;
}

std::string keyColumns(const Columns& columns) {
  return lines(columns, [](const Column& column) {
    return quoted(column.key) + " String COMMENT '" + column.meaning + "'";
  });
}

std::string keys(const Columns& columns) {
  WrappedList list(2);
  for (const Column& column : columns) list.add(quoted(column.key));
  return list.text();
}

std::string attributeList(int code, std::size_t indent, const std::string& type = "") {
  WrappedList list(indent);
  for (std::size_t number = 1; number <= mostAttributes; ++number) {
    list.add(attributeKey(code, number) + type);
  }
  return list.text();
}

void writeStored(const Columns& columns) {
  std::cout << R"(
-- What is kept: a row for each tag, values as they came. `attributes` holds the numbered ones, the
-- first at index 1. Partitions go by our clock, since that of a device may be years off.
CREATE TABLE IF NOT EXISTS vantamo.tags (
  stored DateTime COMMENT 'when the row was written, by the clock of the server',
  time DateTime COMMENT 'st as a time',
  fingerprint UInt64 COMMENT 'the same for a tag that arrived twice',
)" << keyColumns(columns)
            << R"(,
  attributes Array(String)
) ENGINE = MergeTree
PARTITION BY toYYYYMM(stored)
ORDER BY (tid, time, cjuid);
)";
}

void writeArriving(const Columns& columns) {
  std::cout << R"(
-- What arrives: a column for each key that a tag can have. It keeps nothing; the view behind it
-- writes the rows of `tags`. Every column is a string, so that no value can be refused.
CREATE TABLE IF NOT EXISTS vantamo.tags_in (
)" << keyColumns(columns);
  for (const int code : codesWithAttributes()) {
    std::cout << ",\n" << attributeList(code, 2, " Nullable(String)");
  }
  std::cout << "\n) ENGINE = Null;\n";
}

// An attribute that is NULL was not given, where an empty one was.
std::string givenAttributes() {
  std::string text = "arrayMap(a -> assumeNotNull(a), arrayFilter(a -> isNotNull(a), multiIf(\n";
  for (const int code : codesWithAttributes()) {
    text += "    tid = '" + std::to_string(code) + "'";
    if (code == pageViewFormat.code) {
      text += " OR tid = '" + std::to_string(technicalPropertiesFormat.code) + "'";
    }
    text += ", [\n" + attributeList(code, 6) + "],\n";
  }
  return text + "    [NULL])))";
}

void writeStoring(const Columns& columns) {
  std::cout << R"(
CREATE MATERIALIZED VIEW IF NOT EXISTS vantamo.tags_storing TO vantamo.tags AS SELECT
  now() AS stored,
  toDateTime(toUInt32OrZero(st)) AS time,
  cityHash64(
)" << keys(columns)
            << ",\n  attributes) AS fingerprint,\n"
            << keys(columns) << ",\n  " << givenAttributes() << R"( AS attributes
FROM vantamo.tags_in;

-- Where PostMessageUrl points: collects tags in memory and writes them on together, within ten
-- seconds.
CREATE TABLE IF NOT EXISTS vantamo.tags_buffer AS vantamo.tags_in
ENGINE = Buffer(vantamo, tags_in, 1, 1, 10, 100, 10000, 100000, 10000000);
)";
}

// NULL where the text is no number that fits; digits after the fourth decimal are cut. Both
// branches of an if are evaluated for every row, so the conversion is only given what it can
// convert.
std::string asNumber(const std::string& key, const std::string& name) {
  const std::string digits = name + "Digits";
  return "if((extract(replaceRegexpOne(" + key + R"(, '([.][0-9]{4})[0-9]+$', '\\1'), )" +
         "'^-?[0-9]{1,13}(?:[.][0-9]{1,4})?$') AS " + digits +
         ") = '',\n    NULL, toDecimal64(if(" + digits + " = '', '0', " + digits + "), 4))";
}

std::string read(const Column& column) {
  const std::string as = " AS " + column.name;
  switch (column.reading) {
    case Reading::text: return quoted(column.key) + as;
    case Reading::number: return asNumber(column.key, column.name) + as;
    case Reading::storedTime: return column.name;
    case Reading::time: return "toDateTime(toUInt32OrZero(" + column.key + "))" + as;
    case Reading::none: break;
  }
  return "";
}

std::string kinds() {
  std::string text = "multiIf(\n    tid = '" + std::to_string(technicalPropertiesFormat.code) +
                     "', 'technicalProperties',\n";
  forEachEvent([&text](const auto& format) {
    text += "    tid = '" + std::to_string(format.code) + "'";
    for (const auto& value : format.leading) {
      if (value.source == Source::constant) {
        text.append(" AND ").append(value.key).append(" = '").append(value.constant).append("'");
      }
    }
    text.append(", '").append(format.name).append("',\n");
  });
  return text + "    'other') AS kind";
}

void writeRead(Columns columns) {
  std::erase_if(columns, [](const Column& column) { return column.reading == Reading::none; });
  std::cout << R"(
-- What is asked: names for keys, and numbers where texts are numbers (NULL where they are not).
CREATE VIEW IF NOT EXISTS vantamo.events AS SELECT
  )" << kinds()
            << ",\n"
            << lines(columns, read) << R"(,
  attributes,
  stored,
  fingerprint
FROM vantamo.tags;
)";
}

}  // namespace

int main() {
  const Columns columns = allColumns();
  std::cout << "-- Tables for ClickHouse that receive tags: docs/receiving-tags.md.\n"
               "-- Written by vantamo_receiver_schema from the event tables in the code: change "
               "those, then run it.\n\n"
               "CREATE DATABASE IF NOT EXISTS vantamo;\n";
  writeStored(columns);
  writeArriving(columns);
  writeStoring(columns);
  writeRead(columns);
  return std::cout.flush() ? 0 : 1;
}
