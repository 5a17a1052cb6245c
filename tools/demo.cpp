// Shows the library at work: a local endpoint, the example host, and each call of the host next to
// the tag that arrived for it. Exits 0 only when every tag arrived.
//
//   vantamo_demo EXAMPLE_HOST

#include <httplib.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/random.h"
#include "support/json.h"

namespace {

namespace fs = std::filesystem;
using vantamo::Value;

struct ReceivedTag {
  Value::Map keys;
  std::string deviceHeaders;
};

// Listens on a free port of this machine and keeps what it is sent.
class Endpoint {
 public:
  Endpoint() {
    server_.Post("/collect", [this](const httplib::Request& request, httplib::Response& response) {
      std::string headers;
      for (const auto& [name, value] : request.headers) {
        if (name.starts_with("VT-")) headers.append(name).append(": ").append(value).append("  ");
      }
      const std::scoped_lock lock(mutex_);
      tags_.push_back({vantamo::support::parseJson(request.body).map(), headers});
      response.status = 204;
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
  }
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;
  ~Endpoint() {
    server_.stop();
    thread_.join();
  }

  [[nodiscard]] std::string url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/collect";
  }
  [[nodiscard]] std::vector<ReceivedTag> tags() {
    const std::scoped_lock lock(mutex_);
    return tags_;
  }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::mutex mutex_;
  std::vector<ReceivedTag> tags_;
  std::thread thread_;
};

// A folder that is gone at the end.
struct ScratchFolder {
  const fs::path path =
      fs::temp_directory_path() / ("vantamo-demo-" + vantamo::platform::randomUuid());

  ScratchFolder() { fs::create_directories(path / "bundle/VTMod.bundle"); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code error;
    fs::remove_all(path, error);
  }

  void writeSettings(const std::string& url) const {
    const Value::Map settings = {
        {"PostMessageUrl", url}, {"AppName", "DemoShop"}, {"ClientId", "90000001"}};
    std::ofstream(path / "bundle/VTMod.bundle/settings.json")
        << vantamo::support::writeJson(settings) << '\n';
  }
};

// The host's output, a line for each call; nothing when it failed.
std::vector<std::string> runHost(const std::string& host, const fs::path& scratch) {
  const std::string command = "XDG_CACHE_HOME='" + (scratch / "caches").string() +
                              "' VANTAMO_DEBUG=0 '" + host + "' '" + (scratch / "bundle").string() +
                              "'";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return {};
  std::string output;
  std::array<char, 4096> buffer{};
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    output.append(buffer.data(), got);
  }
  const int status = ::pclose(pipe);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::cerr << "the example host failed\n";
    return {};
  }
  std::vector<std::string> lines;
  std::istringstream stream(output);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

bool isInEveryTag(std::string_view key) {
  static constexpr std::array<std::string_view, 9> envelope = {
      "ci", "vn2", "st", "vn1", "ec", "cjen", "cjuid", "cjsid", "cjvf"};
  return std::find(envelope.begin(), envelope.end(), key) != envelope.end();
}

void show(const std::string& line, const ReceivedTag& tag) {
  const std::size_t tab = line.find('\t');
  std::cout << "\n  " << line.substr(tab + 1) << "  -> " << line.substr(0, tab) << "\n     ";
  for (const auto& [key, value] : tag.keys) {
    if (!isInEveryTag(key)) std::cout << ' ' << key << '=' << value.string();
  }
  std::cout << '\n';
  if (!tag.deviceHeaders.empty()) std::cout << "      " << tag.deviceHeaders << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: vantamo_demo EXAMPLE_HOST\n";
    return 2;
  }
  Endpoint endpoint;
  const ScratchFolder scratch;
  scratch.writeSettings(endpoint.url());
  std::cout << "Endpoint at " << endpoint.url() << ", host " << argv[1] << "\n";

  const auto calls = runHost(argv[1], scratch.path);
  const auto tags = endpoint.tags();
  for (std::size_t i = 0; i < std::min(calls.size(), tags.size()); ++i) show(calls[i], tags[i]);
  if (!tags.empty()) {
    std::cout << "\n  in every tag:";
    for (const auto& [key, value] : tags.front().keys) {
      if (isInEveryTag(key)) std::cout << ' ' << key << '=' << value.string();
    }
    std::cout << '\n';
  }
  std::cout << "\n" << calls.size() << " calls, " << tags.size() << " tags arrived\n";
  return !calls.empty() && calls.size() == tags.size() ? 0 : 1;
}
