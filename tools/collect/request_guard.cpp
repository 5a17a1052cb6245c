#include "tools/collect/request_guard.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <array>

#include "tools/collect/problems.h"

namespace vantamo::tools::collect {
namespace {

bool isSame(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// A Host header's name, without port and brackets.
std::string nameOf(std::string_view host) {
  if (host.starts_with('[')) return std::string(host.substr(1, host.find(']') - 1));
  return std::string(host.substr(0, host.find(':')));
}

bool isAddress(const std::string& name, bool onLoopback) {
  std::array<unsigned char, 16> bytes{};
  if (::inet_pton(AF_INET, name.c_str(), bytes.data()) == 1) {
    return !onLoopback || bytes[0] == 127;
  }
  return ::inet_pton(AF_INET6, name.c_str(), bytes.data()) == 1 && (!onLoopback || name == "::1");
}

std::string refusalOfForeign(const RequestOrigin& request) {
  const bool isForeignOrigin =
      !request.origin.empty() && !isSame(request.origin, "http://" + std::string(request.host));
  const bool isForeignSite = !request.fetchSite.empty() && request.fetchSite != "same-origin" &&
                             request.fetchSite != "none";
  return isForeignOrigin || isForeignSite ? "only the inspector's own page may do this\n" : "";
}

}  // namespace

std::string refusalToRead(const RequestOrigin& request, std::string_view machineName,
                          bool onLoopback) {
  const std::string name = nameOf(request.host);
  const bool isMachine =
      !onLoopback && !machineName.empty() &&
      (isSame(name, machineName) || isSame(name, std::string(machineName) + ".local"));
  if (isSame(name, "localhost") || isAddress(name, onLoopback) || isMachine) return "";
  return "the inspector is not known as " + quotedShort(request.host) +
         ": open it by its address\n";
}

std::string refusalToPost(const RequestOrigin& request, std::string_view machineName,
                          bool onLoopback) {
  if (request.origin.empty() && request.fetchSite.empty()) return "";
  auto refusal = refusalToRead(request, machineName, onLoopback);
  return refusal.empty() ? refusalOfForeign(request) : refusal;
}

std::string refusalToChange(const RequestOrigin& request, std::string_view machineName,
                            bool onLoopback) {
  if (auto refusal = refusalToRead(request, machineName, onLoopback); !refusal.empty()) {
    return refusal;
  }
  if (auto refusal = refusalOfForeign(request); !refusal.empty()) return refusal;
  const std::string_view type = request.contentType.substr(0, request.contentType.find(';'));
  if ((request.hasBody || !type.empty()) && !isSame(type, "application/json")) {
    return "the content type must be application/json\n";
  }
  return "";
}

}  // namespace vantamo::tools::collect
