#include "vantamo/value.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace vantamo {

ValueMap::ValueMap() = default;
ValueMap::ValueMap(std::initializer_list<Entry> entries) {
  for (const Entry& entry : entries) set(entry.key, entry.value);
}
ValueMap::ValueMap(const ValueMap&) = default;
ValueMap::ValueMap(ValueMap&&) noexcept = default;
ValueMap& ValueMap::operator=(const ValueMap&) = default;
ValueMap& ValueMap::operator=(ValueMap&&) noexcept = default;
ValueMap::~ValueMap() = default;

ValueMap ValueMap::fromEntries(std::vector<Entry> entries) {
  std::vector<std::size_t> order(entries.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::stable_sort(order, {},
                           [&](std::size_t i) -> std::string_view { return entries[i].key; });
  std::vector<bool> repeats(entries.size());
  for (std::size_t first = 0, i = 1; i < order.size(); ++i) {
    if (entries[order[i]].key != entries[order[first]].key) {
      first = i;
    } else {
      entries[order[first]].value = std::move(entries[order[i]].value);
      repeats[order[i]] = true;
    }
  }
  ValueMap map;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!repeats[i]) map.entries_.push_back(std::move(entries[i]));
  }
  return map;
}

const Value* ValueMap::find(std::string_view key) const noexcept {
  const auto entry = std::ranges::find(entries_, key, &Entry::key);
  return entry == entries_.end() ? nullptr : &entry->value;
}

std::optional<std::string_view> ValueMap::stringAt(std::string_view key) const noexcept {
  const Value* value = find(key);
  const std::string* text = value == nullptr ? nullptr : value->ifString();
  return text == nullptr ? std::nullopt : std::optional<std::string_view>(*text);
}

void ValueMap::set(std::string_view key, Value value) {
  const auto entry = std::ranges::find(entries_, key, &Entry::key);
  if (entry != entries_.end()) {
    entry->value = std::move(value);
  } else {
    entries_.push_back({std::string(key), std::move(value)});
  }
}

void ValueMap::erase(std::string_view key) noexcept {
  std::erase_if(entries_, [key](const Entry& entry) { return entry.key == key; });
}

void ValueMap::merge(const ValueMap& other) {
  for (const Entry& entry : other) set(entry.key, entry.value);
}

std::size_t ValueMap::size() const noexcept { return entries_.size(); }
bool ValueMap::empty() const noexcept { return entries_.empty(); }
ValueMap::const_iterator ValueMap::begin() const noexcept { return entries_.begin(); }
ValueMap::const_iterator ValueMap::end() const noexcept { return entries_.end(); }

bool operator==(const ValueMap& a, const ValueMap& b) {
  return a.size() == b.size() && std::ranges::all_of(a, [&b](const ValueMap::Entry& entry) {
           const Value* other = b.find(entry.key);
           return other != nullptr && *other == entry.value;
         });
}

namespace {

[[noreturn]] void failRead(std::string_view wanted, const Value& value) {
  throw ValueTypeError("expected " + std::string(wanted) + ", found " + std::string(value.kind()));
}

// The platform's rule for a boolean kept as text.
bool meansTrue(std::string_view text) {
  std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
  if (at != std::string_view::npos && (text[at] == '+' || text[at] == '-')) ++at;
  at = text.find_first_not_of('0', at);
  return at != std::string_view::npos &&
         std::string_view("YyTt123456789").find(text[at]) != std::string_view::npos;
}

struct BooleanMeaning {
  bool operator()(bool boolean) const { return boolean; }
  bool operator()(std::int64_t integer) const { return integer != 0; }
  bool operator()(double real) const { return real != 0; }
  bool operator()(const std::string& text) const { return meansTrue(text); }
  template <class Other>
  bool operator()(const Other& /*other*/) const {
    return false;
  }
};

}  // namespace

const std::string& Value::string() const {
  if (const std::string* text = ifString()) return *text;
  failRead("string", *this);
}

const Value::List& Value::list() const {
  if (const List* list = ifList()) return *list;
  failRead("list", *this);
}

const Value::Map& Value::map() const {
  if (const Map* map = ifMap()) return *map;
  failRead("map", *this);
}

double Value::number() const {
  if (const bool* boolean = std::get_if<bool>(&data_)) return *boolean ? 1 : 0;
  if (const double* real = std::get_if<double>(&data_)) return *real;
  if (const auto* integer = std::get_if<std::int64_t>(&data_)) return static_cast<double>(*integer);
  failRead("number", *this);
}

bool Value::booleanMeaning() const { return visit(BooleanMeaning()); }

std::string_view Value::kind() const noexcept {
  static constexpr std::array<std::string_view, 7> names = {"null",   "boolean", "integer", "real",
                                                            "string", "list",    "map"};
  return names.at(data_.index());
}

}  // namespace vantamo
