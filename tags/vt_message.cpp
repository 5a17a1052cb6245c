#include "tags/vt_message.h"

#include <algorithm>

#include "support/json.h"

using vantamo::Text;
using vantamo::Value;
using vantamo::state::StoredTag;

std::unique_ptr<VTMessage> VTMessage::initWithDictionary(const Value::Map& dictionary) {
  auto message = std::make_unique<VTMessage>();
  message->dictionary_ = message->NQMessage::jsonDictionary();
  message->dictionary_->merge(dictionary);
  return message;
}

std::unique_ptr<VTMessage> VTMessage::initWithQueryString(Text queryString) {
  return initWithDictionary(vantamo::tags::dictionaryWithQueryString(queryString.view()));
}

std::unique_ptr<VTMessage> VTMessage::initWithTag(std::shared_ptr<const StoredTag> tag) {
  if (tag->form == StoredTag::Form::queryString) return initWithQueryString(tag->text);
  auto message = std::make_unique<VTMessage>();
  // A core that adds entries of its own needs the map.
  if (!message->NQMessage::jsonDictionary().empty()) {
    return initWithDictionary(vantamo::support::parseJson(tag->text).map());
  }
  message->tag_ = std::move(tag);
  return message;
}

std::optional<Value::Map> VTMessage::dictionary() const {
  return tag_ != nullptr ? vantamo::support::parseJson(tag_->text).map() : dictionary_;
}

Value::Map VTMessage::jsonDictionary() {
  if (tag_ == nullptr && !dictionary_) dictionary_ = NQMessage::jsonDictionary();
  return *dictionary();
}

Text VTMessage::jsonText() const { return tag_ != nullptr ? Text(tag_->text) : Text(); }

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
