#pragma once

#include <string>
#include <string_view>

namespace vantamo::tools::collect {

/// What a request says of where it comes from; empty members were not sent.
struct RequestOrigin {
  std::string_view host;
  std::string_view origin;
  std::string_view fetchSite;
  std::string_view contentType;
  bool hasBody = false;
};

/// Why this request may not read what was collected; empty when it may. The `Host` must be an
/// address, "localhost" or this machine's name: a page of somewhere else that has made a name of
/// its own point here (DNS rebinding) comes with that name.
[[nodiscard]] std::string refusalToRead(const RequestOrigin& request, std::string_view machineName,
                                        bool onLoopback);

/// Why this request may not post a tag; empty when it may. Applications may, from anywhere and
/// under any name of this machine; pages of another origin may not, and only their browsers send
/// `Origin` and `Sec-Fetch-Site`.
[[nodiscard]] std::string refusalToPost(const RequestOrigin& request, std::string_view machineName,
                                        bool onLoopback);

/// Why this request may not change anything; empty when it may. On top of the above, a page of
/// another origin may not: its browser names the origin, or sends a form.
[[nodiscard]] std::string refusalToChange(const RequestOrigin& request,
                                          std::string_view machineName, bool onLoopback);

}  // namespace vantamo::tools::collect
