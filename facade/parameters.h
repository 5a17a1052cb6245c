#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "constraints/vt_constraints_checker.h"
#include "tags/event_format.h"

namespace vantamo::facade {

/// The event's arguments under their names, in order, as the limits are checked against them.
class Parameters {
 public:
  template <class Event>
  Parameters(const tags::EventFormat<Event>& format, const Event& event) {
    for (const tags::Field<Event>& field : format.fields) {
      if (!field.checked) continue;
      constraints::Argument& argument = arguments_.at(count_++);
      argument.name = field.argument;
      if (field.text != nullptr) argument.text = event.*field.text;
      if (field.list != nullptr) argument.list = event.*field.list;
    }
  }

  [[nodiscard]] std::span<const constraints::Argument> arguments() const {
    return {arguments_.data(), count_};
  }

 private:
  static constexpr std::size_t most = 12;

  std::array<constraints::Argument, most> arguments_;
  std::size_t count_ = 0;
};

}  // namespace vantamo::facade
