#pragma once

#include <optional>
#include <string_view>

namespace vantamo::tools::collect {

/// A file of the page, as it stands in page/ and was built into the program.
struct PageFile {
  std::string_view content;
  std::string_view type;
};

/// The file under a URL's path; nothing when there is none.
[[nodiscard]] std::optional<PageFile> pageFile(std::string_view path);

}  // namespace vantamo::tools::collect
