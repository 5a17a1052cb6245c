#pragma once

#include <optional>
#include <string>

#include "tags/attributes.h"
#include "tags/event_format.h"

namespace vantamo::tags {

/// Stands for an absent value where a value is printed.
inline constexpr std::string_view absentPrinted = "(null)";

/// The key of the marketing location, which an event may set before the envelope does.
inline constexpr std::string_view locationKey = "ul";

/// Seconds since 1970 as they go onto the wire: whole, without decimals.
[[nodiscard]] std::string sendTimeText();
/// The value of a key that is no argument.
[[nodiscard]] std::string fixedValueText(const FixedValue& value);
/// The tag's `ul` value: the application, and with it the marketing code when one is given.
[[nodiscard]] std::string locationText(const std::optional<std::string>& applicationName,
                                       Text marketingCode);

/// Where an event's keys go. `add` is called once for each key, in wire order, with an absent value
/// for an argument that is always written but was left out.
template <class Sink>
concept EventSink = requires(Sink sink, std::string_view key, Text value) {
  sink.add(key, value);
  { Sink::isMap } -> std::convertible_to<bool>;
};

/// Writes the part of the tag that is the event's own, from `tid` to the digest.
template <class Event, EventSink Sink>
void writeEvent(const EventFormat<Event>& format, const Event& event,
                const std::optional<std::string>& applicationName, Sink& sink) {
  const auto addFixed = [&sink](std::span<const FixedValue> values) {
    for (const FixedValue& value : values) sink.add(value.key, fixedValueText(value));
  };
  sink.add("tid", std::to_string(format.code));
  addFixed(format.leading);
  bool pairComplete = true;
  for (const Field<Event>& field : format.fields) {
    if (field.text == nullptr) continue;
    const Text value = event.*field.text;
    if (field.form == Form::plain || (field.form == Form::mapOnly && Sink::isMap)) {
      sink.add(field.key, value);
    } else if (field.form == Form::printed) {
      sink.add(field.key, value.present() ? value : Text(absentPrinted));
    } else if (field.form == Form::paired) {
      pairComplete = pairComplete && value.present();
    }
  }
  addFixed(format.trailing);
  for (const Field<Event>& field : format.fields) {
    if (field.text == nullptr || !(event.*field.text).present()) continue;
    const Text value = event.*field.text;
    if (field.form == Form::optional || (field.form == Form::paired && pairComplete)) {
      sink.add(field.key, value);
    } else if (field.form == Form::marketing) {
      sink.add(locationKey, locationText(applicationName, value));
    }
  }
  const Field<Event>* attributes = format.attributes();
  if (attributes == nullptr || !(event.*attributes->list).present()) return;
  const TextList list = event.*attributes->list;
  forEachAttribute(list, format.code,
                   [&sink](std::string_view key, Text value) { sink.add(key, value); });
  if (format.digest) sink.add("ha1", digestOf(joined(list)));
}

}  // namespace vantamo::tags
