#include "tools/collect/page.h"

#include <algorithm>
#include <array>

#include "tools/collect/page_data.h"

namespace vantamo::tools::collect {
namespace {

struct Entry {
  std::string_view path;
  PageFile file;
};

const std::array<Entry, 5> files = {{
    {"/", {page_data::index_html, "text/html; charset=utf-8"}},
    {"/app.js", {page_data::app_js, "text/javascript; charset=utf-8"}},
    {"/tags.js", {page_data::tags_js, "text/javascript; charset=utf-8"}},
    {"/style.css", {page_data::style_css, "text/css; charset=utf-8"}},
    {"/icon.svg", {page_data::icon_svg, "image/svg+xml"}},
}};

}  // namespace

std::optional<PageFile> pageFile(std::string_view path) {
  const auto* const entry = std::ranges::find(files, path, &Entry::path);
  return entry == files.end() ? std::nullopt : std::optional(entry->file);
}

}  // namespace vantamo::tools::collect
