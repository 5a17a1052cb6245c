#pragma once

#include <cstddef>
#include <string_view>

namespace vantamo::tools::collect {

/// Standard output, for lines that may be left out: whoever does not read them must not hold the
/// server up.
class LineOutput {
 public:
  /// Writes a line, of at most a few thousand bytes and with its end, or leaves it out when it
  /// would have to wait. What was left out is told before the next line.
  void write(std::string_view line);
  /// Tells how many lines were left out since it was told last, and waits for that.
  void tellLeftOut();

 private:
  std::size_t leftOut_ = 0;
};

}  // namespace vantamo::tools::collect
