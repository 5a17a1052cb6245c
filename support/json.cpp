#include "support/json.h"

#include <nlohmann/json.hpp>
#include <vector>

#include "support/utf.h"

namespace vantamo::support {
namespace {

using nlohmann::ordered_json;

// Builds a Value from the parser's events; a stack of open containers in place of recursion, so
// that hostile nesting cannot exhaust the host's stack.
class ValueBuilder final : public nlohmann::json_sax<nlohmann::json> {
 public:
  Value take() { return std::move(root_); }

  bool null() override { return add(Value()); }
  bool boolean(bool value) override { return add(Value(value)); }
  bool number_integer(number_integer_t value) override { return add(Value(value)); }
  bool number_unsigned(number_unsigned_t value) override {
    if (value > static_cast<number_unsigned_t>(INT64_MAX)) {
      return add(Value(static_cast<double>(value)));
    }
    return add(Value(static_cast<std::int64_t>(value)));
  }
  bool number_float(number_float_t value, const string_t& /*text*/) override {
    return add(Value(value));
  }
  bool string(string_t& value) override { return add(Value(std::move(value))); }
  bool binary(binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*elements*/) override { return open(Entries()); }
  bool start_array(std::size_t /*elements*/) override { return open(Value::List()); }
  bool key(string_t& value) override {
    open_.back().key = std::move(value);
    return true;
  }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t /*position*/, const std::string& /*lastToken*/,
                   const nlohmann::detail::exception& error) override {
    const std::string_view text = error.what();
    const std::size_t prefixEnd = text.find("] ");
    throw JsonError(
        std::string(text.substr(prefixEnd == std::string_view::npos ? 0 : prefixEnd + 2)));
  }

 private:
  using Entries = std::vector<Value::Map::Entry>;

  static constexpr std::size_t deepestNesting = 512;

  struct Container {
    std::variant<Entries, Value::List> items;
    std::string key;
  };

  template <class Items>
  bool open(Items items) {
    if (open_.size() == deepestNesting) throw JsonError("nested too deeply");
    open_.push_back({std::move(items), {}});
    return true;
  }

  bool close() {
    Container closed = std::move(open_.back());
    open_.pop_back();
    if (auto* entries = std::get_if<Entries>(&closed.items)) {
      return add(Value::Map::fromEntries(std::move(*entries)));
    }
    return add(std::get<Value::List>(std::move(closed.items)));
  }

  bool add(Value value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (auto* list = std::get_if<Value::List>(&open_.back().items)) {
      list->push_back(std::move(value));
    } else {
      std::get<Entries>(open_.back().items).push_back({open_.back().key, std::move(value)});
    }
    return true;
  }

  Value root_;
  std::vector<Container> open_;
};

ordered_json toJson(const Value& value);

struct JsonWriter {
  ordered_json operator()(std::monostate /*null*/) const { return nullptr; }
  ordered_json operator()(const std::string& text) const { return wellFormedUtf8(text); }
  ordered_json operator()(const Value::List& list) const {
    ordered_json json = ordered_json::array();
    for (const Value& entry : list) json.push_back(toJson(entry));
    return json;
  }
  ordered_json operator()(const Value::Map& map) const {
    ordered_json json = ordered_json::object();
    for (const auto& [key, entry] : map) json[wellFormedUtf8(key)] = toJson(entry);
    return json;
  }
  template <class Scalar>
  ordered_json operator()(Scalar scalar) const {
    return scalar;
  }
};

ordered_json toJson(const Value& value) { return value.visit(JsonWriter()); }

}  // namespace

Value parseJson(std::string_view text) {
  ValueBuilder builder;
  nlohmann::json::sax_parse(text, &builder);
  return builder.take();
}

std::string writeJson(const Value& value) { return toJson(value).dump(); }

}  // namespace vantamo::support
