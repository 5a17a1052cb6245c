#include "cores/default/request_builder.h"

#include <algorithm>
#include <utility>

#include "support/debug_log.h"
#include "vantamo/module_directory.h"
#include "vantamo/nq_core.h"

namespace vantamo::core {
namespace {

constexpr const char* operation = "-[NQCore postMessage:forModuleName:]";

// A name is a token; a value has no control characters, which could end the header and begin
// another one.
bool isHeader(std::string_view name, std::string_view value) {
  constexpr std::string_view separators = "()<>@,;:\\\"/[]?={} \t";
  const auto isToken = [&](char c) {
    return c > ' ' && c <= '~' && separators.find(c) == std::string_view::npos;
  };
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
  return !name.empty() && std::ranges::all_of(name, isToken) &&
         std::ranges::none_of(value, isControl);
}

// What the module adds. It is the host's process: whatever goes wrong there, the message still
// goes out.
Value::Map moduleHeaders(NQLifecycleObject& module, const QueuedMessage& message,
                         const std::string& url) {
  Value::Map headers;
  try {
    if (module.respondsTo(NQOptionalOperation::httpHeadersForSessionId)) {
      headers = module.httpHeadersForSessionId(nullptr, message.body);
    }
    if (module.respondsTo(NQOptionalOperation::addCookiesToRequest)) {
      NQRequest request{url, headers};
      module.addCookiesToRequest(request);
      headers = std::move(request.headers);
    }
  } catch (...) {
    support::debugLog(operation, [] { return "The module's headers could not be had"; });
  }
  return headers;
}

}  // namespace

std::optional<default_core::HttpRequest> RequestBuilder::requestFor(
    const QueuedMessage& message) const {
  const auto url = settings_.item("PostMessageUrl", message.moduleName);
  if (!url || !url->isString() || url->string().empty()) return {};
  default_core::HttpRequest request;
  request.url = url->string();
  request.headers.reserve(4);
  request.headers.emplace_back("Content-Type", "application/json");
  request.headers.emplace_back("Idempotency-Key", message.id);
  if (std::string userAgent = userAgent_.get(); !userAgent.empty()) {
    request.headers.emplace_back("User-Agent", std::move(userAgent));
  }
  if (const ModuleInstance module = moduleClass(message.moduleName)) {
    for (const auto& [name, value] : moduleHeaders(module(), message, request.url)) {
      const std::string* text = value.ifString();
      if (text != nullptr && isHeader(name, *text)) {
        request.headers.emplace_back(name, *text);
      } else {
        support::debugLog(operation, [] { return "A header of the module was not usable"; });
      }
    }
  }
  request.body = message.body;
  return request;
}

}  // namespace vantamo::core
