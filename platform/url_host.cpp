#include "platform/url_host.h"

#include <uriparser/Uri.h>

#include <memory>

namespace vantamo::platform {

std::optional<std::string> urlHost(const std::string& url) {
  UriUriA uri{};
  const char* errorPosition = nullptr;
  const char* end = url.data() + url.size();
  if (uriParseSingleUriExA(&uri, url.data(), end, &errorPosition) != URI_SUCCESS) return {};
  const std::unique_ptr<UriUriA, decltype(&uriFreeUriMembersA)> release(&uri, &uriFreeUriMembersA);
  if (uri.hostText.first == nullptr) return std::string();
  return std::string(uri.hostText.first, uri.hostText.afterLast);
}

}  // namespace vantamo::platform
