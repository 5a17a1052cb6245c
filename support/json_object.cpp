#include "support/json_object.h"

#include <rapidjson/writer.h>

#include <limits>
#include <stdexcept>
#include <utility>

#include "support/utf.h"

namespace vantamo::support {
namespace {

// A string as the writer sees it.
struct Output {
  using Ch = char;

  void Put(char character) {
    if (size == text.size()) text.resize(size * 2 + 64);
    text[size++] = character;
  }
  void Flush() {}

  std::string& text;
  std::size_t& size;
};

}  // namespace

JsonObject::JsonObject(std::size_t expectedBytes) : text_(expectedBytes, '\0') {
  Output{text_, size_}.Put('{');
}

void JsonObject::addString(std::string_view text) {
  std::string repaired;
  const std::string_view wellFormed = wellFormedView(text, repaired);
  if (wellFormed.size() > std::numeric_limits<rapidjson::SizeType>::max()) {
    throw std::length_error("a value of more than 4 GiB");
  }
  Output output{text_, size_};
  rapidjson::Writer<Output> writer(output);
  writer.String(wellFormed.data(), static_cast<rapidjson::SizeType>(wellFormed.size()));
}

void JsonObject::add(std::string_view key, std::string_view value) {
  Output output{text_, size_};
  if (size_ > 1) output.Put(',');
  addString(key);
  output.Put(':');
  addString(value);
}

std::string JsonObject::text() const& { return text_.substr(0, size_).append("}"); }

std::string JsonObject::text() && {
  Output{text_, size_}.Put('}');
  text_.resize(size_);
  return std::move(text_);
}

}  // namespace vantamo::support
