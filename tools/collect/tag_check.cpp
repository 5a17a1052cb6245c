#include "tools/collect/tag_check.h"

#include <algorithm>

#include "support/json.h"
#include "support/utf.h"
#include "tags/attributes.h"
#include "tags/event_writer.h"
#include "tools/collect/envelope.h"
#include "tools/collect/problems.h"

namespace vantamo::tools::collect {
namespace {

using tags::Form;

constexpr std::string_view marketingMark = "/?vq_mmc=";

std::string named(const WireField& field, std::string_view key) {
  return std::string(key) + " (" + std::string(field.argument) + ")";
}

void checkLength(const WireField& field, std::string_view key, std::string_view text,
                 Problems& problems) {
  const std::size_t length = support::utf16Length(text);
  if (field.limits.length == 0 || length <= field.limits.length) return;
  problems.add(key, named(field, key) + " has " + std::to_string(length) + " characters" +
                        (field.isList ? " in one entry" : "") + "; the limit is " +
                        std::to_string(field.limits.length));
}

// A list that travels as one string.
void checkJoined(const WireField& field, std::string_view key, std::string_view text,
                 Problems& problems) {
  const std::vector<std::string> entries = tags::split(text);
  if (field.limits.count != 0 && entries.size() > field.limits.count) {
    problems.add(key, named(field, key) + " has " + std::to_string(entries.size()) +
                          " entries; the limit is " + std::to_string(field.limits.count));
  }
  for (const std::string& entry : entries) checkLength(field, key, entry, problems);
}

void checkText(const WireField& field, std::string_view text, Problems& problems) {
  if (field.isList) {
    checkJoined(field, field.key, text, problems);
    return;
  }
  const std::string what = named(field, field.key);
  if (field.form == Form::printed && text == tags::absentPrinted) {
    problems.add(field.key, what + " was left out and printed as (null)");
  } else if (text.empty() && (!field.required.empty() || field.limits.refusesEmpty)) {
    problems.add(field.key, what + " is empty; it is required");
  }
  checkLength(field, field.key, text, problems);
}

// A key that is not there though it is always written, or only where its pair is.
void checkMissing(const WireEvent& event, const WireField& field, const Value::Map& tag,
                  Problems& problems) {
  const std::string what = named(field, field.key);
  const bool isAlwaysWritten =
      field.form == Form::plain || field.form == Form::printed || field.form == Form::mapOnly;
  if (!field.required.empty()) {
    problems.add(field.key, "required " + what + " is missing");
  } else if (isAlwaysWritten) {
    problems.add(field.key, what + " is missing; it is always written");
  } else if (field.form == Form::paired) {
    const auto other = std::ranges::find_if(event.fields, [&](const WireField& row) {
      return row.form == Form::paired && tag.find(row.key) != nullptr;
    });
    if (other == event.fields.end()) return;
    problems.add(field.key, what + " is missing; it goes with " + named(*other, other->key));
  }
}

void checkFields(const WireEvent& event, const Value::Map& tag, Problems& problems) {
  for (const WireField& field : event.fields) {
    if (field.form == Form::attributes || field.form == Form::marketing) continue;
    const Value* value = tag.find(field.key);
    if (value == nullptr) {
      checkMissing(event, field, tag, problems);
    } else if (const std::string* text = value->ifString()) {
      checkText(field, *text, problems);
    }
  }
  const auto marketing = std::ranges::find(event.fields, Form::marketing, &WireField::form);
  const auto code = marketingCodeOf(tag);
  if (marketing != event.fields.end() && code) {
    checkJoined(*marketing, tags::locationKey, *code, problems);
  }
}

void checkFixed(const WireEvent& event, const Value::Map& tag, Problems& problems) {
  for (const tags::FixedValue& fixed : event.fixed) {
    const std::string key(fixed.key);
    const Value* value = tag.find(key);
    const std::string* text = value == nullptr ? nullptr : value->ifString();
    if (value == nullptr) {
      problems.add(key, key + " is missing; it is in every tag of this kind");
    } else if (text != nullptr && fixed.source == tags::Source::constant &&
               *text != fixed.constant) {
      problems.add(key,
                   key + " must be " + std::string(fixed.constant) + ", not " + quotedShort(*text));
    } else if (text != nullptr && fixed.source != tags::Source::constant &&
               (text->empty() || text->find_first_not_of("-0123456789") != std::string::npos)) {
      problems.add(key, key + " must be a whole number, not " + quotedShort(*text));
    }
  }
}

void checkDigest(const WireEvent& event, const Value::Map& tag,
                 const std::vector<std::string>& attributes, Problems& problems) {
  if (!event.digest) return;
  const auto digest = tag.stringAt("ha1");
  if (!digest) {
    if (!attributes.empty() && tag.find("ha1") == nullptr) {
      problems.add("ha1", "ha1 (digest of the attributes) is missing");
    }
    return;
  }
  const bool isDigest = digest->size() == 40 &&
                        digest->find_first_not_of("0123456789abcdef") == std::string_view::npos;
  if (!isDigest) {
    problems.add("ha1",
                 "ha1 must be 40 lower-case hexadecimal digits, not " + quotedShort(*digest));
  } else if (attributes.size() < tags::mostAttributes &&
             *digest != tags::digestOf(tags::joined(attributes))) {
    // With as many as are written at most, there may have been more that only the digest saw.
    problems.add("ha1", "ha1 is not the digest of the attributes of this tag");
  }
}

void checkAttributes(const WireEvent& event, const Value::Map& tag, Problems& problems) {
  const WireField* field = event.attributes();
  if (field == nullptr) return;
  const std::vector<std::string> attributes = attributesOf(event, tag);
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    checkLength(*field, event.attributeStem + std::to_string(i + 1), attributes[i], problems);
  }
  bool gapTold = false;
  for (const auto& [key, value] : tag) {
    const auto number = event.attributeNumber(key);
    if (!number || *number <= attributes.size() || !value.isString()) continue;
    if (*number > tags::mostAttributes) {
      problems.add(key, key + " is past the 50 attributes that are written at most");
    } else if (!gapTold) {
      gapTold = true;
      problems.add(key, key + " is there, but " + event.attributeStem +
                            std::to_string(attributes.size() + 1) + " is missing");
    }
  }
  checkDigest(event, tag, attributes, problems);
}

// Where an unknown key belongs, for one who has mixed up two events.
std::string ownerOf(std::string_view key) {
  for (const WireEvent& event : wireEvents()) {
    const WireField* field = event.field(key);
    if (field != nullptr) {
      return "; it is " + std::string(field->argument) + " of " + std::string(event.name);
    }
  }
  return "";
}

void checkKeys(const WireEvent* event, const Value::Map& tag, Problems& problems) {
  for (const auto& [key, value] : tag) {
    if (!value.isString()) {
      problems.add(key, quotedShort(key) + " must be a string, not " + std::string(value.kind()));
    }
    if (event != nullptr && meaningOf(event, key).empty()) {
      problems.add(key,
                   quotedShort(key) + " is no key of " + std::string(event->name) + ownerOf(key));
    }
  }
}

void checkKind(const Value::Map& tag, Problems& problems) {
  const Value* code = tag.find("tid");
  if (code == nullptr) {
    problems.add("tid", "tid (kind of event) is missing");
  } else if (const std::string* text = code->ifString(); text != nullptr && *text == "4") {
    problems.add("at", "at must be 5 (cart) or 9 (purchase) where tid is 4");
  } else if (text != nullptr) {
    problems.add("tid", "tid " + quotedShort(*text) + " is no event");
  }
}

// Whether an object in here has more keys than anything that is meant as a tag.
bool isCrowded(const Value& value) {
  if (const Value::List* list = value.ifList()) return std::ranges::any_of(*list, isCrowded);
  const Value::Map* map = value.ifMap();
  if (map == nullptr) return false;
  return map->size() > mostKeys || std::ranges::any_of(*map, [](const Value::Map::Entry& entry) {
           return isCrowded(entry.value);
         });
}

// How many values these are, nested ones too.
std::size_t countOf(const Value& value) {
  std::size_t count = 1;
  if (const Value::List* list = value.ifList()) {
    for (const Value& entry : *list) count += countOf(entry);
  } else if (const Value::Map* map = value.ifMap()) {
    for (const auto& [key, member] : *map) count += countOf(member);
  }
  return count;
}

// Takes over the body, unless it is none of a tag.
void takeIn(const Value& body, TagReading& reading, Problems& problems) {
  const std::size_t values = countOf(body);
  if (isCrowded(body)) {
    problems.add("", "the body is no tag: it has more than " + std::to_string(mostKeys) +
                         " keys in one object");
  } else if (values > mostValues) {
    problems.add("", "the body is no tag: it has more than 2,000 values");
  } else if (body.isMap()) {
    reading.tag = body.map();
    reading.values = values;
  } else {
    problems.add("", "the body is not a JSON object but " + std::string(body.kind()));
  }
}

}  // namespace

std::optional<std::string_view> marketingCodeOf(const Value::Map& tag) {
  const auto location = tag.stringAt(tags::locationKey);
  const std::size_t at = location ? location->find(marketingMark) : std::string_view::npos;
  if (at == std::string_view::npos) return {};
  return location->substr(at + marketingMark.size());
}

std::vector<std::string> attributesOf(const WireEvent& event, const Value::Map& tag) {
  std::vector<std::string> attributes;
  while (!event.attributeStem.empty() && attributes.size() < tags::mostAttributes) {
    const auto text = tag.stringAt(event.attributeStem + std::to_string(attributes.size() + 1));
    if (!text) break;
    attributes.emplace_back(*text);
  }
  return attributes;
}

std::string meaningOf(const WireEvent* event, std::string_view key) {
  if (const auto meaning = envelopeMeaning(key); !meaning.empty()) return std::string(meaning);
  if (key == "tid") return "kind of event";
  if (event == nullptr) return "";
  if (const WireField* field = event->field(key)) return std::string(field->argument);
  if (const auto number = event->attributeNumber(key)) {
    return "attribute " + std::to_string(*number);
  }
  if (event->digest && key == "ha1") return "digest of the attributes";
  if (const tags::FixedValue* fixed = event->fixedValue(key)) {
    switch (fixed->source) {
      case tags::Source::screenWidth: return "screen width in points";
      case tags::Source::screenHeight: return "screen height in points";
      case tags::Source::sendTime: return "time of the click";
      case tags::Source::constant: return "always " + std::string(fixed->constant);
    }
  }
  return "";
}

TagReading readTag(std::string_view body, double now) {
  TagReading reading;
  Problems problems;
  try {
    takeIn(support::parseJson(body), reading, problems);
  } catch (const support::JsonError& error) {
    problems.add("", std::string("the body is not JSON: ") + error.what());
  }
  if (problems.empty()) {
    reading.event = eventOf(reading.tag);
    const WireEvent* event = reading.event;
    if (event == nullptr) checkKind(reading.tag, problems);
    checkKeys(event, reading.tag, problems);
    if (event != nullptr) {
      checkFields(*event, reading.tag, problems);
      checkFixed(*event, reading.tag, problems);
      checkAttributes(*event, reading.tag, problems);
    }
    const bool mayHaveCode = event == nullptr || event->name == "firePageView";
    checkEnvelope(reading.tag, mayHaveCode, now, problems);
  }
  reading.problems = std::move(problems).all();
  return reading;
}

}  // namespace vantamo::tools::collect
