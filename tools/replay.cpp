#include "tools/replay.h"

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
#include "tools/replay_calls.h"
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

// The facade's operations, and the two that only a script has.
Calls scriptCalls(double drainSeconds) {
  Calls calls = facadeCalls();
  calls["sleep"] = {{{"seconds", ArgumentKind::number}}, [](const Value::Map& members) {
                      std::this_thread::sleep_for(waitOf(secondsOf(members, 0)));
                      return Value(true);
                    }};
  calls["drain"] = {{{"seconds", ArgumentKind::number}}, [drainSeconds](const Value::Map& members) {
                      return Value(default_core::flush(waitOf(secondsOf(members, drainSeconds))));
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

void chooseBundle(const std::optional<std::string>& bundle) {
  if (bundle) {
    PlatformOverrides overrides;
    overrides.mainBundleFolder = fs::absolute(*bundle).string();
    setPlatformOverrides(overrides);
  }
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

bool run(std::istream& script, const Calls& calls, std::ostream& answers) {
  bool malformed = false;
  std::string line;
  for (int number = 1; std::getline(script, line); ++number) {
    if (isBlank(line)) continue;
    answers << support::writeJson(answerTo(line, number, calls, malformed)) << std::endl;
  }
  return !malformed;
}

}  // namespace

bool isWaitingTime(double seconds) { return seconds >= 0 && seconds <= 1e6; }

int replay(const ReplayOptions& options, std::istream& standardInput, std::ostream& answers) {
  chooseBundle(options.bundle);
  std::ifstream file;
  const bool readsFile = options.script && *options.script != "-";
  if (readsFile) {
    std::error_code error;
    file.open(*options.script);
    if (!file || fs::is_directory(*options.script, error)) {
      throw std::runtime_error(*options.script + ": cannot be read");
    }
  }
  const bool wellFormed =
      run(readsFile ? file : standardInput, scriptCalls(options.drainSeconds), answers);
  const bool delivered = default_core::flush(waitOf(options.drainSeconds));
  if (!wellFormed) return 1;
  return delivered ? 0 : 3;
}

}  // namespace vantamo::tools
