#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "cores/default/curl_transport.h"

namespace vantamo::core {

/// The lines of a request's header as libcurl takes them, in memory that is used again.
class HeaderLines {
 public:
  void set(const default_core::HttpRequest& request);
  [[nodiscard]] curl_slist* list() { return list_.data(); }

 private:
  std::vector<std::string> lines_;
  std::vector<curl_slist> list_;
};

/// One request at a time, on a handle that is prepared once for an endpoint. For one thread.
class CurlLane {
 public:
  explicit CurlLane(const CurlOptions& options);
  CurlLane(const CurlLane&) = delete;
  CurlLane& operator=(const CurlLane&) = delete;
  ~CurlLane();

  /// These throw std::exception when the request cannot be made.
  void preparePost(RequestSource::Request request);
  void prepareConnection(const std::string& url);
  /// What has become of a post that has ended with `code`.
  [[nodiscard]] default_core::HttpResponse response(CURLcode code);
  /// Why it failed, without control characters.
  [[nodiscard]] std::string problem(CURLcode code) const;

  [[nodiscard]] CURL* handle() const { return easy_; }
  [[nodiscard]] static CurlLane& of(CURL* handle);
  [[nodiscard]] std::size_t number() const { return request_.number; }
  /// Whether a name is being looked up, or about to be.
  [[nodiscard]] bool isLookingUp() const { return lookingUp_; }

  bool underWay = false;

 private:
  // What of a response is of interest, and how much of it is read.
  struct Answer {
    std::size_t headerBytes = 0;
    std::size_t bodyBytes = 0;
    std::optional<std::string> retryAfter;
    std::optional<std::string> date;
  };
  struct Target {
    std::string url;
    std::chrono::milliseconds connectTimeout{};
    std::chrono::milliseconds requestTimeout{};
  };

  template <class Value>
  void set(CURLoption option, Value value);
  void prepare(const std::string& url);
  void setAll(const Target& target);

  static std::size_t takeHeader(char* data, std::size_t size, std::size_t count, void* answer);
  static std::size_t discard(char* data, std::size_t size, std::size_t count, void* answer);
  static int noteLookUp(void* resolver, void* reserved, void* lane);
  static curl_socket_t openSocket(void* lane, curlsocktype purpose, curl_sockaddr* address);

  const CurlOptions& options_;
  CURL* const easy_;
  std::optional<Target> target_;  // what the handle is prepared for
  RequestSource::Request request_;
  HeaderLines headers_;
  Answer answer_;
  bool lookingUp_ = false;
  std::array<char, CURL_ERROR_SIZE> error_{};
};

}  // namespace vantamo::core
