#pragma once

#include <optional>
#include <utility>

#include "tags/event_format.h"
#include "tags/vt_message.h"

namespace vantamo::tags {

[[nodiscard]] inline std::optional<Value> valueOf(Text text) {
  return text.present() ? std::optional<Value>(text.view()) : std::nullopt;
}

[[nodiscard]] inline std::optional<Value> valueOf(TextList list) {
  if (!list.present()) return std::nullopt;
  Value::List values;
  values.reserve(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) values.emplace_back(list[i]);
  return values;
}

/// The event's arguments under their names, in order, as the limits are checked against them: an
/// absent argument stands there as the null marker.
template <class Event>
[[nodiscard]] Value::Map parametersOf(const EventFormat<Event>& format, const Event& event) {
  Value::Map parameters;
  for (const Field<Event>& field : format.fields) {
    if (!field.checked) continue;
    safeSetObject(parameters,
                  field.text != nullptr ? valueOf(event.*field.text) : valueOf(event.*field.list),
                  field.argument);
  }
  return parameters;
}

}  // namespace vantamo::tags
