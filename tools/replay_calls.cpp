#include "tools/replay_calls.h"

#include <algorithm>

#include "support/json.h"
#include "tags/event_formats.h"
#include "vantamo/vantamo.h"

namespace vantamo::tools {
namespace {

bool fireEvent(const PageView& event) { return Vantamo::firePageView(event); }
bool fireEvent(const ProductView& event) { return Vantamo::fireProductview(event); }
bool fireEvent(const ShopAction5& event) { return Vantamo::fireShopAction5(event); }
bool fireEvent(const ShopAction9& event) { return Vantamo::fireShopAction9(event); }
bool fireEvent(const Order& event) { return Vantamo::fireOrder(event); }
bool fireEvent(const Registration& event) { return Vantamo::fireRegistration(event); }
bool fireEvent(const Element& event) { return Vantamo::fireElement(event); }
bool fireEvent(const ConversionEvent& event) { return Vantamo::fireConversionEvent(event); }
bool fireEvent(const LinkClick& event) { return Vantamo::fireLinkClick(event); }
bool fireEvent(const Impression& event) { return Vantamo::fireImpression(event); }

Text textOf(const Value::Map& members, std::string_view name) {
  const Value* member = members.find(name);
  return member == nullptr || member->isNull() ? Text() : Text(member->string());
}

std::optional<std::vector<std::string>> listOf(const Value::Map& members, std::string_view name) {
  const Value* member = members.find(name);
  if (member == nullptr || member->isNull()) return {};
  std::vector<std::string> list;
  for (const Value& entry : member->list()) list.push_back(entry.string());
  return list;
}

template <class Event>
Call eventCall(const tags::EventFormat<Event>& format) {
  Call call;
  for (const auto& field : format.fields) {
    const ArgumentKind kind = field.text != nullptr ? ArgumentKind::text : ArgumentKind::list;
    call.arguments.push_back({field.argument, kind, !field.required.empty()});
  }
  call.execute = [&format](const Value::Map& members) {
    Event event;
    // The event only views its lists: they live here for the time of the call.
    std::vector<std::optional<std::vector<std::string>>> lists;
    lists.reserve(format.fields.size());
    for (const auto& field : format.fields) {
      if (field.text != nullptr) {
        event.*field.text = textOf(members, field.argument);
      } else {
        event.*field.list = lists.emplace_back(listOf(members, field.argument));
      }
    }
    return Value(fireEvent(event));
  };
  return call;
}

// A call without arguments, or with one string.
template <class Operation>
Call plainCall(Operation operation) {
  return {{}, [operation](const Value::Map& /*members*/) { return Value(operation()); }};
}

Call textCall(std::string_view argument, bool (*operation)(Text)) {
  return {{{argument}}, [argument, operation](const Value::Map& members) {
            return Value(operation(textOf(members, argument)));
          }};
}

bool fits(const Value& member, ArgumentKind kind) {
  if (member.isNull()) return true;
  switch (kind) {
    case ArgumentKind::text: return member.isString();
    case ArgumentKind::number: return member.isNumber() && !member.isBool();
    case ArgumentKind::list:
      return member.isList() && std::ranges::all_of(member.list(), &Value::isString);
  }
  return false;
}

std::string_view nameOf(ArgumentKind kind) {
  switch (kind) {
    case ArgumentKind::text: return "a string";
    case ArgumentKind::list: return "a list of strings";
    case ArgumentKind::number: return "a number";
  }
  return "";
}

std::string quoted(std::string_view name) { return std::string("\"").append(name).append("\""); }

}  // namespace

Calls facadeCalls() {
  Calls calls = {
      {"startup", plainCall(&Vantamo::startup)},
      {"startNewSession", plainCall(&Vantamo::startNewSession)},
      {"shutdown", plainCall(&Vantamo::shutdown)},
      {"sessionId", plainCall(&Vantamo::sessionId)},
      {"visitorId", plainCall(&Vantamo::visitorId)},
      {"setPRWAdvertisingId", textCall("advertisingId", &Vantamo::setPRWAdvertisingId)},
      {"getPRWAdvertisingId", plainCall([] {
         const auto id = Vantamo::getPRWAdvertisingId();
         return id ? Value(*id) : Value();
       })},
      {"libraryVersion", plainCall(&Vantamo::libraryVersion)},
      {"activateClientId", textCall("clientId", &Vantamo::activateClientId)},
      {"resetToDefaultClientId", plainCall(&Vantamo::resetToDefaultClientId)},
      {"setOptOut", textCall("mode", &Vantamo::setOptOut)},
      {"getOptOut", plainCall(&Vantamo::getOptOut)},
  };
  tags::forEachEvent(
      [&calls](const auto& format) { calls.emplace(format.name, eventCall(format)); });
  return calls;
}

Value lineOf(const std::string& text) {
  try {
    return support::parseJson(text);
  } catch (const support::JsonError& error) {
    // It was parsed alone: of the place only the column is of use.
    const std::string_view reason = error.what();
    const std::size_t column = reason.find("column ");
    throw MalformedCall("not JSON: " +
                        std::string(reason.substr(column == std::string_view::npos ? 0 : column)));
  }
}

const Call& callOf(const Value& line, const Calls& calls) {
  if (!line.isMap()) throw MalformedCall("not a JSON object");
  const auto name = line.map().stringAt("call");
  if (!name) throw MalformedCall("no string member \"call\"");
  const auto entry = calls.find(*name);
  if (entry == calls.end()) throw MalformedCall("unknown call " + quoted(*name));
  const Call& call = entry->second;
  for (const auto& [member, value] : line.map()) {
    if (member == "call") continue;
    const auto argument = std::ranges::find(call.arguments, member, &Argument::name);
    if (argument == call.arguments.end()) {
      throw MalformedCall("unknown member " + quoted(member) + " of " + quoted(*name));
    }
    if (!fits(value, argument->kind)) {
      throw MalformedCall("member " + quoted(member) + " must be " +
                          std::string(nameOf(argument->kind)));
    }
  }
  return call;
}

}  // namespace vantamo::tools
