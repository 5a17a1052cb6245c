#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>
#include <utility>

namespace vantamo::test {

// An inspector on a free port, its output read line by line.
class Inspector {
 public:
  explicit Inspector(const std::string& options) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
    child_ = ::fork();
    if (child_ == 0) {
      ::dup2(ends[1], STDOUT_FILENO);
      ::dup2(ends[1], STDERR_FILENO);
      const std::string command = "VANTAMO_DEBUG=0 exec " VANTAMO_PROGRAM " collect --port 0 ";
      ::execl("/bin/sh", "sh", "-c", (command + options).c_str(), nullptr);
      ::_exit(127);
    }
    ::close(ends[1]);
    output_ = ::fdopen(ends[0], "r");
    const std::string page = line();
    const std::size_t colon = page.rfind(':');
    port = colon == std::string::npos ? 0 : std::atoi(page.c_str() + colon + 1);
    line();  // the settings
  }
  ~Inspector() {
    stop();
    EXPECT_LT(end(), 128) << "ended by a signal";
    std::fclose(output_);
  }

  std::string line() {
    std::string text;
    for (int c = std::fgetc(output_); c != EOF && c != '\n'; c = std::fgetc(output_)) {
      text += static_cast<char>(c);
    }
    return text;
  }
  // The rest of its output; it must be about to end.
  std::string rest() {
    std::string text;
    while (std::feof(output_) == 0) text += line() + "\n";
    return text;
  }
  void stop() const {
    if (child_ > 0) ::kill(child_, SIGTERM);
  }
  int end() {
    int status = 0;
    if (child_ > 0) ::waitpid(std::exchange(child_, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  [[nodiscard]] httplib::Client client() const {
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(30);
    client.set_tcp_nodelay(true);
    return client;
  }
  [[nodiscard]] int post(const std::string& body, const httplib::Headers& headers = {}) const {
    const auto answer = client().Post("/collect", headers, body, "application/json");
    return answer ? answer->status : -1;
  }
  [[nodiscard]] std::string get(const std::string& path) const {
    const auto answer = client().Get(path);
    return answer ? answer->body : "no answer";
  }
  [[nodiscard]] int control(const std::string& path, const std::string& body,
                            const httplib::Headers& headers = {}) const {
    const auto answer = client().Post(path, headers, body, "application/json");
    return answer ? answer->status : -1;
  }

  // A socket that is connected to it.
  [[nodiscard]] int connection() const {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return socket;
  }

  int port = 0;

 private:
  pid_t child_ = 0;
  FILE* output_ = nullptr;
};

}  // namespace vantamo::test
