#pragma once

#include <cstddef>
#include <optional>

#include "vantamo/transport.h"

namespace vantamo::core {

/// Gives out requests to be sent, and hears what has become of each. Called by a transport, on the
/// thread that has asked for the exchange; what the operations throw ends that.
class RequestSource {
 public:
  RequestSource() = default;
  RequestSource(const RequestSource&) = delete;
  RequestSource& operator=(const RequestSource&) = delete;
  virtual ~RequestSource() = default;

  struct Request {
    /// By which the answer is told from others.
    std::size_t number = 0;
    default_core::HttpRequest content;
  };
  /// The next request; nothing when no other one is to be begun for now.
  [[nodiscard]] virtual std::optional<Request> next() = 0;
  virtual void answered(std::size_t number, default_core::HttpResponse response) = 0;
};

/// A transport that can have several requests under way.
class ParallelTransport : public default_core::Transport {
 public:
  /// Sends what `source` gives out, at most `most` requests at a time and the next one as soon as
  /// one is answered, until it gives out nothing and all are answered. An interruption ends it at
  /// once, with an answer of none for what is under way.
  virtual void exchange(RequestSource& source, std::size_t most) = 0;
};

}  // namespace vantamo::core
