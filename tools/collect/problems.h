#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/collect/tag_check.h"

namespace vantamo::tools::collect {

/// A text cut to what a line can show.
[[nodiscard]] std::string cutShort(std::string_view text);
/// The same for a shorter one, in quotation marks.
[[nodiscard]] std::string quotedShort(std::string_view text);

/// Collects what is wrong with a tag, up to a number that a hostile one cannot pass.
class Problems {
 public:
  void add(std::string_view key, std::string text);
  [[nodiscard]] bool empty() const { return found_.empty(); }
  /// All of them, with a last line for what was too much.
  [[nodiscard]] std::vector<Problem> all() &&;

 private:
  std::vector<Problem> found_;
  std::size_t more_ = 0;
};

}  // namespace vantamo::tools::collect
