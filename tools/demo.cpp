// Shows the library at work: a local endpoint, the example host, and each call of the host next to
// the tag that arrived for it. Exits 0 only when every tag arrived.
//
//   vantamo_demo EXAMPLE_HOST

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/random.h"
#include "support/json.h"
#include "tools/local_endpoint.h"

namespace {

namespace fs = std::filesystem;

using vantamo::tools::LocalEndpoint;

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

  void writeSettings(const std::string& settings) const {
    std::ofstream(path / "bundle/VTMod.bundle/settings.json") << settings << '\n';
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

// The keys of a tag that are in every tag, or those that are not.
void showKeys(const LocalEndpoint::Received& tag, bool ofEnvelope) {
  const auto body = vantamo::support::parseJson(tag.body);
  for (const auto& [key, value] : body.map()) {
    if (isInEveryTag(key) == ofEnvelope) std::cout << ' ' << key << '=' << value.string();
  }
  std::cout << '\n';
}

void show(const std::string& line, const LocalEndpoint::Received& tag) {
  const std::size_t tab = line.find('\t');
  std::cout << "\n  " << line.substr(tab + 1) << "  -> " << line.substr(0, tab) << "\n     ";
  showKeys(tag, false);
  for (const auto& [name, value] : tag.headers) {
    if (name.starts_with("VT-")) std::cout << "      " << name << ": " << value << '\n';
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: vantamo_demo EXAMPLE_HOST\n";
    return 2;
  }
  LocalEndpoint endpoint;
  const ScratchFolder scratch;
  scratch.writeSettings(endpoint.settings());
  std::cout << "Endpoint at " << endpoint.url() << ", host " << argv[1] << "\n";

  const auto calls = runHost(argv[1], scratch.path);
  const auto tags = endpoint.wait(calls.size(), std::chrono::seconds(0));
  for (std::size_t i = 0; i < std::min(calls.size(), tags.size()); ++i) show(calls[i], tags[i]);
  if (!tags.empty()) {
    std::cout << "\n  in every tag:";
    showKeys(tags.front(), true);
  }
  std::cout << "\n" << calls.size() << " calls, " << tags.size() << " tags arrived\n";
  return !calls.empty() && calls.size() == tags.size() ? 0 : 1;
}
