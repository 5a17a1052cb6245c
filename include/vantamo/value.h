#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "vantamo/export.h"

namespace vantamo {

class Value;

/// Thrown when a Value is read as a kind that it does not hold.
class VANTAMO_EXPORT ValueTypeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A map from string to Value that keeps the order of insertion. Look-ups are linear: it is made
/// for the handful of entries of a tag, a parameters dictionary or a settings file.
class VANTAMO_EXPORT ValueMap {
 public:
  struct Entry;
  /// Of the entries, in their order.
  using const_iterator = std::vector<Entry>::const_iterator;

  ValueMap();  ///< Empty.
  /// As fromEntries.
  ValueMap(std::initializer_list<Entry> entries);
  ValueMap(const ValueMap&);                 ///< A deep copy.
  ValueMap(ValueMap&&) noexcept;             ///< Leaves the other one empty.
  ValueMap& operator=(const ValueMap&);      ///< A deep copy.
  ValueMap& operator=(ValueMap&&) noexcept;  ///< Leaves the other one unspecified.
  ~ValueMap();

  /// A map of all `entries`; of equal keys the last value wins, at the place of the first.
  static ValueMap fromEntries(std::vector<Entry> entries);

  /// The value under `key`, or a null pointer.
  [[nodiscard]] const Value* find(std::string_view key) const noexcept;
  /// The value under `key` when it is a string, or nothing.
  [[nodiscard]] std::optional<std::string_view> stringAt(std::string_view key) const noexcept;
  /// Stores `value` under `key`; an entry already there keeps its place and takes the new value.
  void set(std::string_view key, Value value);
  /// Removes the entry under `key`, if there is one.
  void erase(std::string_view key) noexcept;
  /// Stores every entry of `other`; its values win.
  void merge(const ValueMap& other);

  [[nodiscard]] std::size_t size() const noexcept;      ///< How many entries.
  [[nodiscard]] bool empty() const noexcept;            ///< Whether there is none.
  [[nodiscard]] const_iterator begin() const noexcept;  ///< The first entry.
  [[nodiscard]] const_iterator end() const noexcept;    ///< Past the last one.

  /// Equal when both hold equal values under the same keys; order does not matter.
  VANTAMO_EXPORT friend bool operator==(const ValueMap& a, const ValueMap& b);

 private:
  std::vector<Entry> entries_;
};

/// A dynamic value: null marker, boolean, integer, real, string, list or map. It stands for
/// settings, parameters dictionaries, message dictionaries and parsed JSON.
///
/// A value type: copies are deep, and one object may be read from many threads.
class VANTAMO_EXPORT Value {
 public:
  using List = std::vector<Value>;  ///< In order.
  using Map = ValueMap;             ///< From string to value.

  Value() noexcept = default;        ///< The null marker.
  Value(std::nullptr_t) noexcept {}  ///< The null marker.
  /// @{
  /// Of the argument's kind. A null `const char*` must not be given.
  Value(bool boolean) noexcept : data_(boolean) {}
  Value(int integer) noexcept : data_(std::int64_t{integer}) {}
  Value(std::int64_t integer) noexcept : data_(integer) {}
  Value(double real) noexcept : data_(real) {}
  Value(const char* text) : data_(std::string(text)) {}
  Value(std::string_view text) : data_(std::string(text)) {}
  Value(std::string text) noexcept : data_(std::move(text)) {}
  Value(List list) noexcept : data_(std::move(list)) {}
  Value(Map map) noexcept : data_(std::move(map)) {}
  /// @}

  /// @{
  /// Whether this kind is held.
  [[nodiscard]] bool isNull() const noexcept { return holds<std::monostate>(); }
  [[nodiscard]] bool isBool() const noexcept { return holds<bool>(); }
  /// An integer, a real or a boolean: booleans are numbers.
  [[nodiscard]] bool isNumber() const noexcept {
    return isBool() || holds<std::int64_t>() || holds<double>();
  }
  [[nodiscard]] bool isString() const noexcept { return holds<std::string>(); }
  [[nodiscard]] bool isList() const noexcept { return holds<List>(); }
  [[nodiscard]] bool isMap() const noexcept { return holds<Map>(); }
  /// @}

  /// @{
  /// The held value. Each throws ValueTypeError, naming what is held instead, on another kind.
  [[nodiscard]] const std::string& string() const;
  [[nodiscard]] const List& list() const;
  [[nodiscard]] const Map& map() const;
  /// Any number as a real.
  [[nodiscard]] double number() const;
  /// @}

  /// @{
  /// The held string, list or map, or a null pointer on another kind.
  [[nodiscard]] const std::string* ifString() const noexcept {
    return std::get_if<std::string>(&data_);
  }
  [[nodiscard]] const List* ifList() const noexcept { return std::get_if<List>(&data_); }
  [[nodiscard]] const Map* ifMap() const noexcept { return std::get_if<Map>(&data_); }
  /// @}

  /// The boolean meaning of whatever is held: a number other than 0; a string that, after leading
  /// blanks, a sign and zeros, begins with one of Y y T t 1-9; otherwise false.
  [[nodiscard]] bool booleanMeaning() const;
  /// "null", "boolean", "integer", "real", "string", "list" or "map", for messages.
  [[nodiscard]] std::string_view kind() const noexcept;

  /// Calls `visitor` with the held alternative (std::monostate for the null marker).
  template <class Visitor>
  decltype(auto) visit(Visitor&& visitor) const {
    return std::visit(std::forward<Visitor>(visitor), data_);
  }

  /// Equal when both hold the same kind and equal values: 1 and 1.0 differ.
  friend bool operator==(const Value& a, const Value& b) { return a.data_ == b.data_; }

 private:
  template <class Alternative>
  [[nodiscard]] bool holds() const noexcept {
    return std::holds_alternative<Alternative>(data_);
  }

  std::variant<std::monostate, bool, std::int64_t, double, std::string, List, Map> data_;
};

/// One entry of a map.
struct ValueMap::Entry {
  std::string key;  ///< Any text, the empty one included.
  Value value;      ///< What stands under the key.
};

}  // namespace vantamo
