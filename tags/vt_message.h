#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "state/stored_tag.h"
#include "vantamo/nq_core.h"

/// The core message that carries one tag as a map. Belongs to the core once it is posted.
class VTMessage : public NQMessage {
 public:
  /// Without a tag: `dictionary` is absent until the first serialisation.
  VTMessage() = default;
  /// The base message's entries, then those of the tag, which win.
  static std::unique_ptr<VTMessage> initWithQueryString(vantamo::Text queryString);
  static std::unique_ptr<VTMessage> initWithDictionary(const vantamo::Value::Map& dictionary);
  /// The same of a tag in the form that it is stored in, which is read only for a core that wants
  /// the map, or adds entries to it.
  static std::unique_ptr<VTMessage> initWithTag(
      std::shared_ptr<const vantamo::state::StoredTag> tag);

  /// A new copy at every call.
  vantamo::Value::Map jsonDictionary() override;
  [[nodiscard]] vantamo::Text jsonText() const override;

  [[nodiscard]] std::optional<vantamo::Value::Map> dictionary() const;
  void setDictionary(std::optional<vantamo::Value::Map> dictionary) {
    dictionary_ = std::move(dictionary);
    tag_ = nullptr;
  }

 private:
  std::optional<vantamo::Value::Map> dictionary_;
  std::shared_ptr<const vantamo::state::StoredTag> tag_;  // in its place
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
