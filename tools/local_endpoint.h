#pragma once

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/json.h"

namespace vantamo::tools {

/// An endpoint on a free port of this machine that keeps what it is sent and answers as told.
class LocalEndpoint {
 public:
  struct Received {
    std::string body;
    httplib::Headers headers;

    /// The string under `name` in the body, a JSON object; "-" when there is none.
    [[nodiscard]] std::string key(std::string_view name) const {
      return std::string(support::parseJson(body).map().stringAt(name).value_or("-"));
    }
    /// The value of a header; "-" when it was not sent.
    [[nodiscard]] std::string header(const std::string& name) const {
      const auto found = headers.find(name);
      return found == headers.end() ? "-" : found->second;
    }
  };
  /// The status for the n-th request, from 0. Called on the server's threads.
  using Answer = std::function<int(std::size_t number)>;

  explicit LocalEndpoint(Answer answer = [](std::size_t) { return 204; })
      : answer_(std::move(answer)) {
    server_.Post("/collect", [this](const httplib::Request& request, httplib::Response& response) {
      std::unique_lock lock(mutex_);
      const std::size_t number = received_.size();
      received_.push_back({request.body, request.headers});
      arrived_.notify_all();
      lock.unlock();
      response.status = answer_(number);
      if (response.status == 302) response.set_header("Location", "/collect");
    });
    server_.set_keep_alive_timeout(1);  // stopping waits for idle connections
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::yield();
  }
  LocalEndpoint(const LocalEndpoint&) = delete;
  LocalEndpoint& operator=(const LocalEndpoint&) = delete;
  ~LocalEndpoint() {
    server_.stop();
    thread_.join();
  }

  /// The server ends a connection after so many requests, a few unless set; to be called before the
  /// first request.
  void setRequestsPerConnection(std::size_t count) { server_.set_keep_alive_max_count(count); }

  [[nodiscard]] std::string url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/collect";
  }
  /// What a module's settings file needs to post here.
  [[nodiscard]] std::string settings() const {
    return R"({"PostMessageUrl":")" + url() + R"(","AppName":"App","ClientId":"123"})";
  }

  /// Waits for at least `count` requests and answers all there are; fewer when `limit` is over.
  [[nodiscard]] std::vector<Received> wait(std::size_t count,
                                           std::chrono::seconds limit = std::chrono::seconds(20)) {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, limit, [&] { return received_.size() >= count; });
    return received_;
  }

 private:
  Answer answer_;
  httplib::Server server_;
  int port_ = 0;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<Received> received_;
  std::thread thread_;
};

}  // namespace vantamo::tools
