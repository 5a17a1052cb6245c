// Shows the library at work: the tag inspector as the endpoint, the example host, and each call of
// the host next to the tag that arrived for it. Exits 0 only when every tag arrived.
//
//   vantamo_demo [--stay] [--screenshot FILE] EXAMPLE_HOST

#include <sys/wait.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/random.h"
#include "tools/collect/collect_command.h"
#include "tools/screenshot.h"

namespace {

namespace fs = std::filesystem;

using vantamo::tools::collect::Collector;
using vantamo::tools::collect::StopAtSignals;
using vantamo::tools::collect::StoredTag;

struct Options {
  std::string host;
  std::string screenshot;
  bool stay = false;
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

  void writeSettings(const std::string& postUrl) const {
    std::ofstream(path / "bundle/VTMod.bundle/settings.json")
        << R"({"PostMessageUrl":")" << postUrl << R"(","AppName":"App","ClientId":"123"})" << '\n';
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

// Does `work` on another thread while the inspector serves on this one.
template <class Work>
auto whileServing(Collector& collector, Work work) {
  auto result = std::async(std::launch::async, [&collector, &work] {
    struct StopServing {
      Collector& collector;
      ~StopServing() { collector.stop(); }
    } const stopServing{collector};
    return work();
  });
  collector.run([] { return false; });
  return result.get();
}

bool isInEveryTag(std::string_view key) {
  static constexpr std::array<std::string_view, 9> envelope = {
      "ci", "vn2", "st", "vn1", "ec", "cjen", "cjuid", "cjsid", "cjvf"};
  return std::find(envelope.begin(), envelope.end(), key) != envelope.end();
}

// The keys of a tag that are in every tag, or those that are not.
void showKeys(const StoredTag& tag, bool ofEnvelope) {
  for (const auto& [key, value] : tag.reading.tag) {
    if (isInEveryTag(key) == ofEnvelope) std::cout << ' ' << key << '=' << value.string();
  }
  std::cout << '\n';
}

void show(const std::string& line, const StoredTag& tag) {
  const std::size_t tab = line.find('\t');
  std::cout << "\n  " << line.substr(tab + 1) << "  -> " << line.substr(0, tab) << "\n     ";
  showKeys(tag, false);
  for (const auto& [name, value] : tag.headers) {
    if (name.starts_with("VT-")) std::cout << "      " << name << ": " << value << '\n';
  }
  for (const auto& problem : tag.problems) std::cout << "      problem: " << problem.text << '\n';
}

// Whether a tag has arrived for each call.
bool showAll(const std::vector<std::string>& calls, Collector& collector) {
  const auto& tags = collector.store().tags();
  for (std::size_t i = 0; i < std::min(calls.size(), tags.size()); ++i) show(calls[i], *tags[i]);
  if (!tags.empty()) {
    std::cout << "\n  in every tag:";
    showKeys(*tags.front(), true);
  }
  std::cout << "\n" << calls.size() << " calls, " << tags.size() << " tags arrived\n";
  return !calls.empty() && calls.size() == tags.size();
}

int run(const Options& options) {
  Collector collector({.port = 0});
  const ScratchFolder scratch;
  scratch.writeSettings(collector.postUrl());
  std::cout << "Endpoint at " << collector.postUrl() << ", host " << options.host << std::endl;
  const auto calls = whileServing(collector, [&] { return runHost(options.host, scratch.path); });
  bool isGood = showAll(calls, collector);
  if (!options.screenshot.empty()) {
    const bool isTaken = whileServing(collector, [&] {
      return vantamo::tools::takeScreenshot(collector.url() + "?still", options.screenshot);
    });
    std::cout << (isTaken ? "picture of the page: " : "no picture could be taken: ")
              << options.screenshot << "\n";
    isGood = isGood && isTaken;
  }
  std::cout << "page " << collector.url() << (options.stay ? " until Ctrl-C" : "") << std::endl;
  if (options.stay) {
    const StopAtSignals signals(collector);
    collector.run([] { return false; });
  }
  return isGood ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int usageError = 2;
  try {
    Options options;
    CLI::App app("Shows the tags of an example host arriving at a local endpoint.", "vantamo_demo");
    app.add_option("host", options.host, "The example host")->required();
    app.add_option("--screenshot", options.screenshot,
                   "Write a picture of the inspector's page (PNG), taken in Chromium");
    app.add_flag("--stay", options.stay, "Keep the inspector's page until Ctrl-C");
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return app.exit(error) == 0 ? 0 : usageError;
    }
    return run(options);
  } catch (const std::exception& error) {
    std::cerr << "vantamo_demo: " << error.what() << '\n';
    return usageError;
  }
}
