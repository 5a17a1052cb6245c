#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tags/tag_operations.h"

/// Builds a tag as a query string: key=value pairs joined by "&", values exactly as given, never
/// escaped. An absent value in a fixed position prints "(null)".
///
///   auto tag = VTTag::tagWith("App", "123");
///   tag.makeProductViewTag({.pageId = "p", .productId = "sku-1", .productName = "Shoe"});
///   post(tag.tag());
class VTTag : public vantamo::tags::TagOperations<VTTag> {
 public:
  static VTTag tagWith(vantamo::Text applicationName, vantamo::Text clientId);

  VTTag() = default;

  /// The last finished tag; "" before the first.
  [[nodiscard]] const std::string& tag() const { return tag_; }
  void setTag(vantamo::Text tag) { tag_ = tag.view(); }

  /// The numbered attributes as they are appended to an event, each with "&" in front.
  [[nodiscard]] static std::string makeAttributeStringFrom(vantamo::TextList attributes, int tid);
  /// Puts the envelope around a partial tag, keeps the result in `tag` and returns it.
  std::string buildFinalTag(std::string_view partialTag);
  /// "&ha1=" and the digest.
  [[nodiscard]] static std::string sha1From(vantamo::Text text);
  /// The string split at every "-_-"; an empty list for an absent or empty string.
  [[nodiscard]] static std::vector<std::string> arrayFromAttributesString(vantamo::Text text);

  // The event sink.
  static constexpr bool isMap = false;
  void start() { partial_.clear(); }
  void add(std::string_view key, vantamo::Text value);
  void finish() { buildFinalTag(partial_); }

 private:
  using TagOperations::TagOperations;

  std::string partial_;
  std::string tag_;
};
