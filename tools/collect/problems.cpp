#include "tools/collect/problems.h"

#include "support/utf.h"

namespace vantamo::tools::collect {

std::string quotedShort(std::string_view text) {
  constexpr std::size_t most = 60;
  const bool isLong = text.size() > most;
  std::string shown = "\"";
  // A cut may go through a character.
  shown += support::wellFormedUtf8(text.substr(0, most));
  return shown + (isLong ? "\"…" : "\"");
}

void Problems::add(std::string_view key, std::string text) {
  if (found_.size() == mostProblems) {
    ++more_;
    return;
  }
  found_.push_back({std::string(key), std::move(text)});
}

std::vector<Problem> Problems::all() && {
  if (more_ > 0) found_.push_back({"", "and " + std::to_string(more_) + " more"});
  return std::move(found_);
}

}  // namespace vantamo::tools::collect
