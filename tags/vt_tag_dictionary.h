#pragma once

#include <string>
#include <string_view>

#include "tags/tag_operations.h"
#include "vantamo/value.h"

/// Builds a tag as a map of wire keys to strings, the form that the module posts. An absent value
/// leaves its key out, but for the page id and category of technical properties, which print
/// "(null)".
///
///   auto tag = VTTagDictionary::tagWithApplicationName("App", "123");
///   tag.makeProductViewTag({.pageId = "p", .productId = "sku-1", .productName = "Shoe"});
///   post(tag.tagDictionary());
///
/// The operations never empty `tagDict`: a second event would add to the first.
class VTTagDictionary : public vantamo::tags::TagOperations<VTTagDictionary> {
 public:
  static VTTagDictionary tagWithApplicationName(vantamo::Text applicationName,
                                                vantamo::Text clientId);

  VTTagDictionary() = default;

  [[nodiscard]] const vantamo::Value::Map& tagDict() const { return tagDict_; }
  void setTagDict(vantamo::Value::Map tagDict) { tagDict_ = std::move(tagDict); }
  /// A copy that later changes to the builder do not reach.
  [[nodiscard]] vantamo::Value::Map tagDictionary() const { return tagDict_; }

  /// The numbered attributes, key to value.
  [[nodiscard]] static vantamo::Value::Map attributesDictionaryFrom(vantamo::TextList attributes,
                                                                    int tid);
  /// Adds the envelope's entries.
  void buildFinalDictionary();
  /// The digest alone.
  [[nodiscard]] static std::string sha1From(vantamo::Text text);

  // The event sink.
  static constexpr bool isMap = true;
  void start() {}
  void add(std::string_view key, vantamo::Text value);
  void finish() { buildFinalDictionary(); }

 private:
  using TagOperations::TagOperations;

  vantamo::Value::Map tagDict_;
};
