#include "tools/collect/event_table.h"

#include <algorithm>
#include <charconv>

#include "constraints/vt_constraints_checker.h"
#include "tags/event_formats.h"

namespace vantamo::tools::collect {
namespace {

constexpr std::string_view actionKey = "at";

ArgumentLimits limitsOf(std::string_view event, std::string_view argument) {
  for (const constraints::Limit& row : constraints::builtInLimits()) {
    if (row.apiName == event && row.parameter == argument) {
      return {row.required, static_cast<std::size_t>(row.length),
              static_cast<std::size_t>(row.count)};
    }
  }
  return {};
}

template <class Event>
WireEvent wireEvent(const tags::EventFormat<Event>& format, std::string_view name) {
  WireEvent event{.name = name, .code = format.code, .digest = format.digest};
  for (const auto& field : format.fields) {
    event.fields.push_back(
        {.argument = field.argument,
         .key = field.key,
         .form = field.form,
         .isList = field.list != nullptr,
         .required = field.required,
         .limits = field.checked ? limitsOf(name, field.argument) : ArgumentLimits()});
  }
  event.fixed.assign(format.leading.begin(), format.leading.end());
  event.fixed.insert(event.fixed.end(), format.trailing.begin(), format.trailing.end());
  if (format.attributes() != nullptr) {
    event.attributeStem = tags::attributePrefix(format.code);
    event.attributeStem += tags::attributeInfix(format.code);
  }
  return event;
}

std::vector<WireEvent> allEvents() {
  std::vector<WireEvent> events;
  tags::forEachEvent(
      [&events](const auto& format) { events.push_back(wireEvent(format, format.name)); });
  // A page view in another guise: its arguments and limits are the page view's.
  WireEvent technical = wireEvent(tags::technicalPropertiesFormat, tags::pageViewFormat.name);
  technical.technicalProperties = true;
  for (WireField& field : technical.fields) {
    if (field.form == tags::Form::marketing) field.isList = true;
  }
  events.push_back(std::move(technical));
  return events;
}

}  // namespace

const WireField* WireEvent::field(std::string_view key) const {
  const auto found = std::ranges::find_if(fields, [key](const WireField& row) {
    return row.key == key && row.form != tags::Form::marketing &&
           row.form != tags::Form::attributes;
  });
  return found == fields.end() ? nullptr : &*found;
}

const WireField* WireEvent::attributes() const {
  const auto found = std::ranges::find(fields, tags::Form::attributes, &WireField::form);
  return found == fields.end() ? nullptr : &*found;
}

bool WireEvent::hasArgument(std::string_view argument) const {
  return std::ranges::find(fields, argument, &WireField::argument) != fields.end();
}

const tags::FixedValue* WireEvent::fixedValue(std::string_view key) const {
  const auto found = std::ranges::find(fixed, key, &tags::FixedValue::key);
  return found == fixed.end() ? nullptr : &*found;
}

std::optional<std::size_t> WireEvent::attributeNumber(std::string_view key) const {
  if (attributeStem.empty() || !key.starts_with(attributeStem)) return {};
  key.remove_prefix(attributeStem.size());
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), number);
  const bool isNumber = error == std::errc() && end == key.data() + key.size();
  return isNumber && number > 0 && key.front() != '0' ? std::optional(number) : std::nullopt;
}

std::span<const WireEvent> wireEvents() {
  static const std::vector<WireEvent> events = allEvents();
  return events;
}

const WireEvent* eventOf(const Value::Map& tag) {
  const auto code = tag.stringAt("tid");
  const auto action = tag.stringAt(actionKey);
  for (const WireEvent& event : wireEvents()) {
    if (code != std::to_string(event.code)) continue;
    const tags::FixedValue* ownAction = event.fixedValue(actionKey);
    if (ownAction == nullptr || action == ownAction->constant) return &event;
  }
  return nullptr;
}

bool isEventName(std::string_view name) {
  return std::ranges::any_of(wireEvents(),
                             [name](const WireEvent& event) { return event.name == name; });
}

}  // namespace vantamo::tools::collect
