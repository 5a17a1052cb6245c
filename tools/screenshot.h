#pragma once

#include <string>

namespace vantamo::tools {

/// Writes a picture (PNG) of a page, taken in headless Chromium; false when there is no Chromium or
/// it fails, with the reason on standard error. Waits for the page, a minute at most.
[[nodiscard]] bool takeScreenshot(const std::string& url, const std::string& file);

}  // namespace vantamo::tools
