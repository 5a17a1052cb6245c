#include "tools/collect/problems.h"

#include "support/utf.h"

namespace vantamo::tools::collect {

namespace {

std::string cut(std::string_view text, std::size_t most) {
  // A cut may go through a character.
  return support::wellFormedUtf8(text.substr(0, most));
}

}  // namespace

std::string cutShort(std::string_view text) {
  constexpr std::size_t most = 200;
  return cut(text, most) + (text.size() > most ? "…" : "");
}

std::string quotedShort(std::string_view text) {
  constexpr std::size_t most = 60;
  return "\"" + cut(text, most) + (text.size() > most ? "\"…" : "\"");
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
