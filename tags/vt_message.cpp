#include "tags/vt_message.h"

#include <algorithm>

using vantamo::Text;
using vantamo::Value;

std::unique_ptr<VTMessage> VTMessage::initWithDictionary(const Value::Map& dictionary) {
  auto message = std::make_unique<VTMessage>();
  message->dictionary_ = message->NQMessage::jsonDictionary();
  message->dictionary_->merge(dictionary);
  return message;
}

std::unique_ptr<VTMessage> VTMessage::initWithQueryString(Text queryString) {
  return initWithDictionary(vantamo::tags::dictionaryWithQueryString(queryString.view()));
}

Value::Map VTMessage::jsonDictionary() {
  if (!dictionary_) dictionary_ = NQMessage::jsonDictionary();
  return *dictionary_;
}

namespace vantamo::tags {
namespace {

void storePair(Value::Map& map, std::string_view piece) {
  const std::size_t equals = piece.find('=');
  if (equals == std::string_view::npos || equals == 0) return;
  const std::string_view value = piece.substr(equals + 1);
  const bool several = value.find('=') != std::string_view::npos;
  if (several && piece.find('?') == std::string_view::npos) return;
  map.set(piece.substr(0, equals), value);
}

}  // namespace

Value::Map dictionaryWithQueryString(std::string_view queryString) {
  Value::Map map;
  while (!queryString.empty()) {
    const std::size_t end = std::min(queryString.find('&'), queryString.size());
    storePair(map, queryString.substr(0, end));
    queryString.remove_prefix(std::min(end + 1, queryString.size()));
  }
  return map;
}

void safeSetObject(Value::Map& map, std::optional<Value> value, Text key) {
  map.set(key.view(), value ? *std::move(value) : Value());
}

}  // namespace vantamo::tags
