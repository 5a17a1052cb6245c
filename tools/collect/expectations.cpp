#include "tools/collect/expectations.h"

#include <algorithm>
#include <istream>
#include <stdexcept>
#include <utility>

#include "support/json.h"
#include "tools/collect/expected_member.h"
#include "tools/collect/problems.h"
#include "tools/plain_text.h"

namespace vantamo::tools::collect {
namespace {

bool isEventMember(std::string_view name) { return name == "event" || name == "call"; }

bool isListOfStrings(const Value& value) {
  return value.isList() && std::ranges::all_of(value.list(), &Value::isString);
}

// Whether the event, or any when none is named, may have such a key or argument.
bool isKnown(std::string_view name, std::string_view eventName) {
  return std::ranges::any_of(wireEvents(), [&](const WireEvent& event) {
    return (eventName.empty() || event.name == eventName) &&
           (event.hasArgument(name) || !meaningOf(&event, name).empty());
  });
}

void checkMember(std::string_view name, const Value& value, std::string_view eventName) {
  const std::string member = "member " + quotedShort(name);
  if (isEventMember(name)) {
    const std::string* event = value.ifString();
    if (event == nullptr || !isEventName(*event)) {
      throw std::runtime_error(member + " must be the name of an event");
    }
  } else if (value.isNull() && !isKnown(name, eventName)) {
    // A misspelt one is always absent.
    throw std::runtime_error(member + " is absent anyway: it is neither a key nor an argument of " +
                             (eventName.empty() ? "any event" : std::string(eventName)));
  } else if (!value.isString() && !value.isNull() && !isListOfStrings(value)) {
    throw std::runtime_error(member + " must be a string, a list of strings or null");
  }
}

Value::Map membersOf(const std::string& line) {
  const Value parsed = support::parseJson(line);
  if (!parsed.isMap()) throw std::runtime_error("not a JSON object");
  if (parsed.map().empty()) throw std::runtime_error("expects nothing");
  const Value::Map& members = parsed.map();
  const auto event = members.stringAt(members.find("event") == nullptr ? "call" : "event");
  const std::string_view eventName = event && isEventName(*event) ? *event : "";
  for (const auto& [name, value] : members) checkMember(name, value, eventName);
  return members;
}

std::string lineText(const Value::Map& members) {
  std::string text;
  for (const auto& [name, value] : members) {
    if (isEventMember(name)) text.insert(0, value.string() + " ");
  }
  for (const auto& [name, value] : members) {
    if (!isEventMember(name)) text += name + "=" + support::writeJson(value) + " ";
  }
  if (!text.empty()) text.pop_back();
  return printable(text);
}

}  // namespace

std::vector<Expectation> expectationsOf(std::istream& file, const std::string& name) {
  std::vector<Expectation> expectations;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') continue;
    try {
      expectations.push_back({number, membersOf(line)});
    } catch (const std::exception& error) {
      throw std::runtime_error(name + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  if (file.bad()) throw std::runtime_error(name + ": cannot be read");
  if (expectations.empty()) throw std::runtime_error(name + ": expects no tag");
  return expectations;
}

Plan::Plan(std::string name, std::vector<Expectation> expectations, PlanRules rules)
    : name_(std::move(name)),
      expectations_(std::move(expectations)),
      rules_(rules),
      tagOf_(expectations_.size()),
      isSettled_(expectations_.size()) {}

void Plan::clear() {
  arrived_.clear();
  std::ranges::fill(tagOf_, std::nullopt);
  isSettled_.assign(expectations_.size(), false);
  matched_ = 0;
}

void Plan::add(const Tag& tag) {
  Arrived arrived{.tag = tag, .call = callOf(*tag)};
  for (std::size_t i = 0; i < expectations_.size(); ++i) {
    if (isSettled_[i] || (rules_.inOrder && i != matched_)) continue;
    if (differences(expectations_[i].members, *tag, arrived.call).empty()) {
      arrived.fits.push_back(i);
    }
  }
  arrived_.push_back(std::move(arrived));
  if (place(arrived_.size() - 1)) ++matched_;
}

// Gives the tag a line of its own, moving others to lines that fit them too where it must: as few
// as possible, so that a free line is taken at once.
bool Plan::place(std::size_t arrived) {
  std::vector<std::optional<std::size_t>> takerOf(expectations_.size());  // by line
  std::vector<std::size_t> tags = {arrived};
  for (std::size_t next = 0; next < tags.size(); ++next) {
    for (const std::size_t line : arrived_[tags[next]].fits) {
      if (takerOf[line] || isSettled_[line]) continue;
      takerOf[line] = tags[next];
      if (!tagOf_[line]) {
        moveInto(line, takerOf);
        return true;
      }
      tags.push_back(*tagOf_[line]);
    }
  }
  // No free line can be reached from these, now or later: nobody needs to look at them again.
  for (std::size_t line = 0; line < takerOf.size(); ++line) {
    if (takerOf[line]) isSettled_[line] = true;
  }
  return false;
}

void Plan::moveInto(std::size_t line, const std::vector<std::optional<std::size_t>>& takerOf) {
  for (std::optional<std::size_t> free = line; free;) {
    const std::size_t taker = takerOf[*free].value();
    tagOf_[*free] = taker;
    free = std::exchange(arrived_[taker].line, free);
  }
}

std::string Plan::missingText(std::size_t index) const {
  const Expectation& expectation = expectations_[index];
  std::string text = name_ + ":" + std::to_string(expectation.line) + ": no tag for " +
                     lineText(expectation.members) + "\n";
  const Arrived* nearest = nullptr;
  std::vector<Difference> least;
  for (const Arrived& arrived : arrived_) {
    if (arrived.line) continue;
    auto found = differences(expectation.members, *arrived.tag, arrived.call);
    // One of another kind is near to nothing.
    const bool isOther = std::ranges::any_of(
        found, [](const Difference& difference) { return isEventMember(difference.name); });
    if (isOther || (nearest != nullptr && found.size() >= least.size())) continue;
    nearest = &arrived;
    least = std::move(found);
  }
  if (nearest == nullptr) return text;
  text += "  nearest: " + shortText(*nearest->tag) + "\n";
  if (least.empty()) text += "    it came out of order\n";
  for (const Difference& difference : least) {
    text += "    " +
            printable(difference.name + ": expected " + difference.expected + ", was " +
                      difference.actual) +
            "\n";
  }
  return text;
}

std::string Plan::difference() const {
  std::string text;
  for (std::size_t i = 0; i < expectations_.size(); ++i) {
    if (!tagOf_[i]) text += missingText(i);
  }
  for (const Arrived& arrived : arrived_) {
    if (!arrived.line) text += "not expected: " + shortText(*arrived.tag) + "\n";
  }
  return text;
}

std::string shortText(const StoredTag& tag) {
  std::string text = "#" + std::to_string(tag.sequence) + " ";
  const TagReading& reading = tag.reading;
  text += reading.event == nullptr ? "no known event" : std::string(reading.event->name);
  const Value::Map call = callOf(tag);
  constexpr std::size_t most = 4;
  std::size_t shown = 0;
  for (const auto& [name, value] : call) {
    if (name == "call" || shown == most) continue;
    text += " " + name + "=" + cutShort(support::writeJson(value));
    ++shown;
  }
  if (reading.event != nullptr && reading.event->technicalProperties) {
    text += " (technical properties)";
  }
  return printable(text);
}

}  // namespace vantamo::tools::collect
