#include "tools/replay.h"

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <istream>
#include <ostream>
#include <thread>

#include "platform/bundle.h"
#include "platform/file.h"
#include "support/json.h"
#include "support/settings_file.h"
#include "tools/progress.h"
#include "tools/replay_calls.h"
#include "tools/waiting_time.h"
#include "vantamo/default_core.h"
#include "vantamo/platform.h"

namespace vantamo::tools {
namespace {

namespace fs = std::filesystem;

std::chrono::milliseconds waitOf(double seconds) {
  return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(seconds * 1000));
}

double secondsOf(const Value::Map& members, double otherwise) {
  const Value* member = members.find("seconds");
  const double seconds = member == nullptr || member->isNull() ? otherwise : member->number();
  if (!isWaitingTime(seconds)) {
    throw MalformedCall("member \"seconds\" must be a number from 0 to 1000000");
  }
  return seconds;
}

// Waits for delivery, and shows how much is left of it.
bool deliver(double seconds, Progress& progress) {
  progress.setWaiting(true);
  const bool delivered = default_core::flush(waitOf(seconds));
  progress.setWaiting(false);
  return delivered;
}

// The facade's operations, and the two that only a script has.
Calls scriptCalls(double drainSeconds, Progress& progress) {
  Calls calls = facadeCalls();
  calls["sleep"] = {{{"seconds", ArgumentKind::number}}, [](const Value::Map& members) {
                      std::this_thread::sleep_for(waitOf(secondsOf(members, 0)));
                      return Value(true);
                    }};
  calls["drain"] = {{{"seconds", ArgumentKind::number}},
                    [drainSeconds, &progress](const Value::Map& members) {
                      return Value(deliver(secondsOf(members, drainSeconds), progress));
                    }};
  return calls;
}

void checkBundle(const std::string& folder) {
  std::error_code error;
  if (!fs::is_directory(folder, error)) throw std::runtime_error(folder + ": not a folder");
  for (const char* bundle : {"VTMod", "NQCore"}) {
    const std::string path = folder + "/" + bundle + ".bundle";
    if (platform::isAbsent(path)) continue;
    if (!fs::is_directory(path, error)) throw std::runtime_error(path + ": not a folder");
    const auto file = support::readSettingsFile(path);
    if (file.problem) throw std::runtime_error(*file.problem);
  }
}

void prepare(const std::optional<std::string>& bundle, const Progress& progress) {
  PlatformOverrides overrides;
  if (bundle) overrides.mainBundleFolder = fs::absolute(*bundle).string();
  overrides.logSink = progress.logSink();
  setPlatformOverrides(overrides);
  checkBundle(platform::mainBundleFolder());
}

bool isBlank(std::string_view line) {
  return line.find_first_not_of(" \t\r\v\f") == std::string_view::npos;
}

// One line's answer; `malformed` is set when it could not be executed.
Value::Map answerTo(const std::string& line, int number, const Calls& calls, bool& malformed) {
  try {
    const Value parsed = lineOf(line);
    const Value result = callOf(parsed, calls).execute(parsed.map());
    return {{"call", *parsed.map().stringAt("call")}, {"result", result}};
  } catch (const std::exception& error) {
    malformed = true;
    return {{"line", number}, {"error", error.what()}};
  }
}

// As a terminal shows it: what could not be executed, and what the library refuses.
std::string coloured(const Value::Map& answer, const std::string& text) {
  const Value* result = answer.find("result");
  if (result == nullptr) return "\x1b[31m" + text + "\x1b[0m";
  return result->isBool() && !result->booleanMeaning() ? "\x1b[33m" + text + "\x1b[0m" : text;
}

bool run(std::istream& script, const Calls& calls, bool colours, Progress& progress,
         std::ostream& answers) {
  bool malformed = false;
  std::string line;
  for (int number = 1; std::getline(script, line); ++number) {
    progress.advance(line.size() + 1);
    if (isBlank(line)) continue;
    const Value::Map answer = answerTo(line, number, calls, malformed);
    const std::string text = support::writeJson(answer);
    progress.writeAnswer(
        [&] { answers << (colours ? coloured(answer, text) : text) << std::endl; });
  }
  return !malformed;
}

std::optional<std::uint64_t> sizeOf(const std::string& script) {
  std::error_code error;
  const std::uintmax_t size = fs::is_regular_file(script, error) ? fs::file_size(script, error) : 0;
  return error || size == 0 ? std::nullopt : std::optional<std::uint64_t>(size);
}

}  // namespace

int replay(const ReplayOptions& options, std::istream& standardInput, std::ostream& answers) {
  const bool readsFile = options.script && *options.script != "-";
  // Whoever types the script sees how far it has come.
  const bool isTyped = !readsFile && ::isatty(STDIN_FILENO) != 0;
  Progress progress(options.progress && !isTyped,
                    readsFile ? sizeOf(*options.script) : std::nullopt,
                    [] { return default_core::stats().queuedMessages; });
  prepare(options.bundle, progress);
  std::ifstream file;
  if (readsFile) {
    std::error_code error;
    file.open(*options.script);
    if (!file || fs::is_directory(*options.script, error)) {
      throw std::runtime_error(*options.script + ": cannot be read");
    }
  }
  const bool wellFormed =
      run(readsFile ? file : standardInput, scriptCalls(options.drainSeconds, progress),
          options.colours, progress, answers);
  const bool delivered = deliver(options.drainSeconds, progress);
  if (!wellFormed) return 1;
  return delivered ? 0 : 3;
}

}  // namespace vantamo::tools
