#include "tools/collect/expected_member.h"

#include "support/json.h"
#include "tools/collect/replay_line.h"

namespace vantamo::tools::collect {
namespace {

Value valueOf(const Value::Map& members, std::string_view name) {
  const Value* value = members.find(name);
  return value == nullptr ? Value() : *value;
}

std::string shown(const Value& value) {
  return value.isNull() ? "absent" : support::writeJson(value);
}

}  // namespace

Value::Map callOf(const StoredTag& tag) { return replayCall(tag.reading).value_or(Value::Map()); }

std::vector<Difference> differences(const Value::Map& expected, const StoredTag& tag,
                                    const Value::Map& call) {
  std::vector<Difference> found;
  for (const auto& [name, value] : expected) {
    Value wanted = value;
    Value actual;
    if (name == "event" || name == "call") {
      actual = valueOf(call, "call");
    } else if (tag.reading.event != nullptr && tag.reading.event->hasArgument(name)) {
      actual = valueOf(call, name);
      if (wanted == Value("") || wanted == Value(Value::List())) wanted = Value();
      if (actual == Value(Value::List())) actual = Value();
    } else {
      actual = valueOf(tag.reading.tag, name);
    }
    if (wanted != actual) found.push_back({name, shown(wanted), shown(actual)});
  }
  return found;
}

}  // namespace vantamo::tools::collect
