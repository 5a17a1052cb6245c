#include "bench/speed/measurements.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "platform/random.h"

namespace vantamo::bench {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// What a command prints, as JSON.
json outputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), &::pclose);
  if (!pipe) throw std::runtime_error("cannot run: " + command);
  std::string text;
  for (int c = std::fgetc(pipe.get()); c != EOF; c = std::fgetc(pipe.get())) {
    text += static_cast<char>(c);
  }
  json output = json::parse(text, nullptr, false);
  if (output.is_discarded()) throw std::runtime_error("failed: " + command);
  return output;
}

void writeSettings(const fs::path& folder, const std::string& module, const json& items) {
  fs::create_directories(folder / (module + ".bundle"));
  std::ofstream(folder / (module + ".bundle") / "settings.json") << items;
}

}  // namespace

Scratch::Scratch()
    : path_((fs::temp_directory_path() / ("vantamo-speed-" + platform::randomUuid())).string()) {
  fs::create_directories(path_);
}

Scratch::~Scratch() {
  std::error_code error;
  fs::remove_all(path_, error);
}

json measure(const Sink& sink, const HostRun& run) {
  constexpr int flushMilliseconds = 120'000;
  const Scratch scratch;
  const std::string folder = run.folder.empty() ? scratch.path() : run.folder;
  writeSettings(folder, "VTMod",
                {{"PostMessageUrl", sink.url()}, {"AppName", "Bench"}, {"ClientId", "123"}});
  writeSettings(folder, "NQCore",
                {{"MaxQueuedMessages", 1'000'000},
                 {"MaxQueueBytes", 1'000'000'000},
                 {"RequestTimeoutSeconds", 300},
                 {"MaxConcurrentPosts", run.concurrentPosts}});
  std::string command = "VANTAMO_FAULTS=sync=" + std::to_string(run.diskDelay) +
                        " '" VANTAMO_SPEED_HOST "' fire --folder '" + folder + "'";
  const auto option = [&command](const char* name, int value) {
    command.append(" --").append(name).append(" ").append(std::to_string(value));
  };
  option("count", run.count);
  option("attributes", run.attributes);
  option("threads", run.threads);
  option("pace", run.pace);
  option("flush", run.delivers ? flushMilliseconds : 0);
  option("idle", run.idle);
  option("settling", run.settling);
  static_cast<void>(sink.takeSeen());
  json figures = outputOf(command);
  const Sink::Seen seen = sink.takeSeen();
  const bool isComplete = figures.value("flushed", true) && seen.requests == seen.unique &&
                          (!run.delivers || figures["delivered"] == seen.unique);
  if (!isComplete) throw std::runtime_error("not all was delivered once: " + figures.dump());
  figures["sink"] = {{"requests", seen.requests},
                     {"connections", seen.connections},
                     {"seconds", seen.time.count()}};
  return figures;
}

json measureCurl(const Sink& sink, int count, int parallel) {
  return outputOf("'" VANTAMO_SPEED_HOST "' curl --url '" + sink.url() + "' --count " +
                  std::to_string(count) + " --parallel " + std::to_string(parallel));
}

double addedKilobytes(int library) {
  const Scratch scratch;
  const auto stripped = [&scratch](int number) {
    const std::string program = VANTAMO_SIZE_HOST + std::to_string(number);
    const std::string copy = scratch.path() + "/stripped";
    if (std::system(("strip -o '" + copy + "' '" + program + "'").c_str()) != 0) {
      throw std::runtime_error("cannot strip " + program);
    }
    return static_cast<double>(fs::file_size(copy)) / 1000;
  };
  return stripped(library) - stripped(0);
}

}  // namespace vantamo::bench
