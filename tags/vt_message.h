#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "vantamo/nq_core.h"

/// The core message that carries one tag as a map. Belongs to the core once it is posted.
class VTMessage : public NQMessage {
 public:
  /// Without a tag: `dictionary` is absent until the first serialisation.
  VTMessage() = default;
  /// The base message's entries, then those of the tag, which win.
  static std::unique_ptr<VTMessage> initWithQueryString(vantamo::Text queryString);
  static std::unique_ptr<VTMessage> initWithDictionary(const vantamo::Value::Map& dictionary);

  /// A new copy at every call.
  vantamo::Value::Map jsonDictionary() override;

  [[nodiscard]] const std::optional<vantamo::Value::Map>& dictionary() const { return dictionary_; }
  void setDictionary(std::optional<vantamo::Value::Map> dictionary) {
    dictionary_ = std::move(dictionary);
  }

 private:
  std::optional<vantamo::Value::Map> dictionary_;
};

namespace vantamo::tags {

/// A finished query-string tag back as a map of strings. Nothing is decoded or trimmed; of equal
/// keys the last one wins. A piece without "=", or with an empty key, is dropped; one with several
/// "=" is kept only when it holds a "?", as the marketing location does.
[[nodiscard]] Value::Map dictionaryWithQueryString(std::string_view queryString);

/// Stores `value` under `key`; an absent value is stored as the null marker, never left out. (An
/// absent key is stored under "".)
void safeSetObject(Value::Map& map, std::optional<Value> value, Text key);

}  // namespace vantamo::tags
