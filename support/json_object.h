#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantamo::support {

/// Writes one flat JSON object of strings, pair by pair, into one block of memory: for what is
/// written on a host's thread. Ill-formed UTF-8 becomes U+FFFD.
///
///   JsonObject object;
///   object.add("tid", "5");
///   post(std::move(object).text());  // {"tid":"5"}
class JsonObject {
 public:
  /// Room for `expectedBytes` is made at once; it grows by itself.
  explicit JsonObject(std::size_t expectedBytes = 1000);

  /// `key` must not be in the object yet.
  void add(std::string_view key, std::string_view value);

  [[nodiscard]] std::string text() const&;
  [[nodiscard]] std::string text() &&;

 private:
  void addString(std::string_view text);

  std::string text_;      // longer than what is written
  std::size_t size_ = 0;  // of what is written
};

}  // namespace vantamo::support
