#include "tools/help_text.h"

#include "tools/replay_calls.h"

namespace vantamo::tools {
namespace {

constexpr std::string_view cachesVariable =
    "  XDG_CACHE_HOME     the caches directory, an absolute path (default: ~/.cache)\n";
constexpr std::string_view proxyVariables =
    "  http_proxy, https_proxy, all_proxy, no_proxy\n"
    "                     the proxy for the endpoint, but never for this machine itself\n";
constexpr std::string_view colourVariables =
    "  NO_COLOR           when set to anything but \"\": no colours\n"
    "  TERM               when unset or \"dumb\": no colours, no progress\n";

std::string shownArgument(const Argument& argument) {
  std::string text(argument.name);
  if (argument.kind == ArgumentKind::list) text += "[]";
  return argument.required ? text + "*" : text;
}

// The name of the call, then its members, in lines of moderate length.
std::string shownCall(std::string_view name, const Call& call) {
  constexpr std::size_t column = 26;
  constexpr std::size_t width = 92;
  std::string text;
  std::string line = "  " + std::string(name);
  line.resize(call.arguments.empty() ? line.size() : column, ' ');
  for (const Argument& argument : call.arguments) {
    const std::string shown = shownArgument(argument);
    if (line.size() + 1 + shown.size() > width) {
      text += line + "\n";
      line = std::string(column, ' ');
    }
    line += (line.size() > column ? " " : "") + shown;
  }
  return text + line + "\n";
}

std::string shownCalls() {
  std::string text;
  for (const auto& [name, call] : facadeCalls()) text += shownCall(name, call);
  return text;
}

}  // namespace

std::string programHelp() {
  return "`vantamo COMMAND --help` tells a command's options, exit statuses and examples.\n"
         "Every command answers 2 for a usage error.";
}

std::string replayHelp() {
  return R"(Script:
  One JSON object a line; empty lines are passed over. "call" names the operation, the other
  members are its arguments: strings, or lists of strings ([]). Members that are left out or
  null are absent, which is not the same as "". An event is refused (false) without those
  marked *, and before "startup". Modes of setOptOut are "opt_in", "opt_out" and "anonymous".

)" + shownCalls() +
         R"(  sleep                   seconds: a number from 0 to 1000000 (default: 0)
  drain                   seconds: the same (default: that of --drain). Waits for delivery of
                          all there is, at most so long; true when nothing is left

  Each call is answered by one line as soon as it is done: {"call":NAME,"result":VALUE}, where
  VALUE is true, false, a string or null. A line that names no call that could be executed is
  answered {"line":NUMBER,"error":TEXT}, and the script goes on. On a terminal such lines are
  red, calls that answer false are yellow, and the last line tells how far the script has come.

Bundle:
  VTMod.bundle/settings.json with at least {"PostMessageUrl":URL}, the http or https endpoint;
  without it nothing is sent. `vantamo doctor` checks the settings.

Exit status:
  0  every line was well-formed, and everything is delivered
  1  a line was malformed
  2  a usage error, or a bundle or script that cannot be read: nothing was executed
  3  messages are left; the next run with the same caches directory sends them

Environment:
)" + std::string(cachesVariable) +
         "  VANTAMO_DEBUG      a number greater than 0 writes the debug log to standard error\n" +
         std::string(proxyVariables) + std::string(colourVariables) + R"(
Example:
  cat >script.jsonl <<'END'
  {"call":"startup"}
  {"call":"firePageView","pageId":"home","attributes":["spring","web"]}
  {"call":"drain","seconds":10}
  END
  vantamo replay --bundle app script.jsonl)";
}

std::string queueHelp() {
  return R"(Output:
  A line for each message or folder concerned: fields with tabs between them in the order that
  the action names, control characters as \xNN; or with --json an object.

Exit status:
  0  done
  1  a folder could not be read or changed, or an id was not found
  2  a usage error, or no queue folder: nothing was changed
  3  a folder in the queue belongs to a running process; the others are done

Examples:
  vantamo queue dead --bodies ~/.cache/NQCore/shop
  vantamo queue replay ~/.cache/NQCore/shop 4f6c2f0e-6d0f-4a3c-9f43-6f1f0d6f0b1a
  vantamo queue erase --yes ~/.cache/NQCore/shop)";
}

std::string doctorHelp() {
  return R"(Exit status:
  0  nothing has failed
  1  something has failed
  2  a usage error, or no such bundle

Environment:
)" + std::string(cachesVariable) +
         std::string(proxyVariables) + std::string(colourVariables) + R"(
Example:
  vantamo doctor --bundle /opt/shop --application shop)";
}

}  // namespace vantamo::tools
