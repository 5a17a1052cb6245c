#pragma once

#include <microhttpd.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What stands between the inspector and libmicrohttpd: owners of its handles.
namespace vantamo::tools::collect {

struct StopDaemon {
  void operator()(MHD_Daemon* daemon) const { ::MHD_stop_daemon(daemon); }
};
using Daemon = std::unique_ptr<MHD_Daemon, StopDaemon>;

struct DestroyResponse {
  void operator()(MHD_Response* response) const { ::MHD_destroy_response(response); }
};
using Response = std::unique_ptr<MHD_Response, DestroyResponse>;

using Pairs = std::vector<std::pair<std::string, std::string>>;

/// A request's headers or query parameters, as many as a request has at most.
[[nodiscard]] Pairs valuesOf(MHD_Connection* connection, MHD_ValueKind kind);

/// A response with `body`, a type and the headers that every answer has.
[[nodiscard]] Response textResponse(std::string_view body, std::string_view type);

/// Made piece by piece: `next` answers the next piece, or an empty one when there is none for now.
class Producer {
 public:
  virtual ~Producer() = default;
  virtual std::string next() = 0;
  /// Called when there is no piece for now; false ends the response.
  virtual bool waitForMore() = 0;
};
[[nodiscard]] Response streamedResponse(std::unique_ptr<Producer> producer, std::string_view type);

void addHeader(const Response& response, const char* name, const std::string& value);

/// Queues it; false closes the connection.
[[nodiscard]] MHD_Result queue(MHD_Connection* connection, unsigned status,
                               const Response& response);

}  // namespace vantamo::tools::collect
