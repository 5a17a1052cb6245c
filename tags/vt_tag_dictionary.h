#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "support/json_object.h"
#include "tags/tag_operations.h"
#include "vantamo/value.h"

/// Builds a tag as a map of wire keys to strings, the form that the module posts. An absent value
/// leaves its key out, but for the page id and category of technical properties, which print
/// "(null)".
///
///   auto tag = VTTagDictionary::tagWithApplicationName("App", "123");
///   tag.makeProductViewTag({.pageId = "p", .productId = "sku-1", .productName = "Shoe"});
///   post(std::move(tag).json());
///
/// The operations never empty `tagDict`: a second event would add to the first.
///
/// A builder's one event is written as the JSON that is sent, at once. A map is made of it for
/// whoever asks for one, and from then on kept by a builder that is used on.
class VTTagDictionary : public vantamo::tags::TagOperations<VTTagDictionary> {
 public:
  static VTTagDictionary tagWithApplicationName(vantamo::Text applicationName,
                                                vantamo::Text clientId);

  VTTagDictionary() = default;

  [[nodiscard]] vantamo::Value::Map tagDict() const;
  void setTagDict(vantamo::Value::Map tagDict);
  /// A copy that later changes to the builder do not reach.
  [[nodiscard]] vantamo::Value::Map tagDictionary() const { return tagDict(); }
  /// The map as a JSON object, which leaves the builder.
  [[nodiscard]] std::string json() &&;

  /// The numbered attributes, key to value.
  [[nodiscard]] static vantamo::Value::Map attributesDictionaryFrom(vantamo::TextList attributes,
                                                                    int tid);
  /// Adds the envelope's entries.
  void buildFinalDictionary();
  /// The digest alone.
  [[nodiscard]] static std::string sha1From(vantamo::Text text);

  // The event sink. Between two envelopes each key is added once.
  static constexpr bool isMap = true;
  void start() {}
  void add(std::string_view key, vantamo::Text value);
  void finish() { buildFinalDictionary(); }

 private:
  using TagOperations::TagOperations;

  [[nodiscard]] bool hasLocation() const;

  vantamo::support::JsonObject json_;
  bool locationAdded_ = false;
  bool finished_ = false;
  std::optional<vantamo::Value::Map> map_;  // in the place of all these, once there is one
};
