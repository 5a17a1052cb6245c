#include "tools/collect/replay_line.h"

#include "tags/attributes.h"

namespace vantamo::tools::collect {
namespace {

Value listValue(const std::vector<std::string>& entries) {
  return Value::List(entries.begin(), entries.end());
}

// Optional arguments go out as "" when they were left out: what is empty stays out here.
Value argumentOf(const WireEvent& event, const WireField& field, const Value::Map& tag) {
  if (field.form == tags::Form::attributes) {
    const std::vector<std::string> attributes = attributesOf(event, tag);
    const bool wasGiven = !attributes.empty() || (event.digest && tag.find("ha1") != nullptr);
    return wasGiven ? listValue(attributes) : Value();
  }
  const auto text =
      field.form == tags::Form::marketing ? marketingCodeOf(tag) : tag.stringAt(field.key);
  if (!text || text->empty()) return {};
  return field.isList ? listValue(tags::split(*text)) : Value(*text);
}

}  // namespace

std::optional<Value::Map> replayCall(const TagReading& reading) {
  if (reading.event == nullptr) return {};
  Value::Map call = {{"call", reading.event->name}};
  for (const WireField& field : reading.event->fields) {
    Value argument = argumentOf(*reading.event, field, reading.tag);
    if (!argument.isNull()) call.set(field.argument, std::move(argument));
  }
  return call;
}

}  // namespace vantamo::tools::collect
