// Runs the program on a pseudo terminal, where it shows progress and colours, and asks bash for the
// completions of command lines.

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>

#include <future>
#include <regex>
#include <set>

#include "tests/kit/host_test.h"
#include "tools/local_endpoint.h"

namespace vantamo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// What a terminal shows in the end: "\r" and the erasing of a line obeyed, colours kept.
std::vector<std::string> screenOf(const std::string& output) {
  std::vector<std::string> lines(1);
  bool returned = false;  // to the start of the last line
  for (std::size_t i = 0; i < output.size(); ++i) {
    if (output[i] == '\n') {
      lines.emplace_back();
      returned = false;
    } else if (output[i] == '\r') {
      returned = true;
    } else if (output.compare(i, 3, "\x1b[K") == 0) {
      if (returned) lines.back().clear();
      i += 2;
    } else {
      if (returned && !lines.back().empty()) lines.back() = "OVERWRITTEN: ";
      returned = false;
      lines.back() += output[i];
    }
  }
  if (lines.back().empty()) lines.pop_back();
  return lines;
}

// `command` in a shell that has a terminal.
class OnTerminal {
 public:
  explicit OnTerminal(const std::string& command) {
    const winsize size{.ws_row = 24, .ws_col = 100, .ws_xpixel = 0, .ws_ypixel = 0};
    child_ = ::forkpty(&terminal_, nullptr, nullptr, &size);
    if (child_ == 0) {
      ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      ::_exit(127);
    }
  }
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;
  ~OnTerminal() {
    ::close(terminal_);
    if (child_ > 0) ::waitpid(child_, nullptr, 0);
  }

  void type(const std::string& keys) {
    EXPECT_EQ(::write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  // Reads until `text` was shown, or the program has ended or been silent for half a minute.
  const std::string& readUntil(const std::string& text) {
    constexpr int patience = 30'000;
    std::array<char, 4096> buffer{};
    pollfd state{terminal_, POLLIN, 0};
    while ((text.empty() || output_.find(text) == std::string::npos) &&
           ::poll(&state, 1, patience) == 1) {
      const ssize_t got = ::read(terminal_, buffer.data(), buffer.size());
      if (got <= 0) break;  // the other side is closed
      output_.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return output_;
  }
  const std::string& readAll() { return readUntil(""); }

 private:
  pid_t child_ = -1;
  int terminal_ = -1;
  std::string output_;
};

class TerminalTest : public HostTest {
 protected:
  [[nodiscard]] std::string replay(const std::string& script, const std::string& environment,
                                   const std::string& redirection = "") const {
    std::ofstream(scratch() / "script") << script;
    return "XDG_CACHE_HOME=" + caches().string() + " " + environment +
           " " VANTAMO_PROGRAM " replay --bundle " + bundle().string() + " " +
           (scratch() / "script").string() + " " + redirection;
  }
};

const std::string mixed = R"({"call":"getOptOut"})"
                          "\n"
                          R"({"call":"startNewSession"})"
                          "\nx\n";
const std::string answer = R"({"call":"getOptOut","result":"opt_in"})";
const std::string refused = R"({"call":"startNewSession","result":false})";
const std::string malformed = R"({"line":3,"error":"not JSON: column 1)";

TEST_F(TerminalTest, ColoursAreForTerminalsThatShowThem) {
  writeSettings("VTMod", "{}");
  const std::string plain = "VANTAMO_DEBUG=0 TERM=xterm ";
  const std::vector<std::tuple<std::string, std::string, bool>> cases = {
      {"env -u NO_COLOR " + plain, "", true},     {"NO_COLOR= " + plain, "", true},
      {"NO_COLOR=1 " + plain, "", false},         {"VANTAMO_DEBUG=0 TERM=dumb", "", false},
      {"VANTAMO_DEBUG=0 env -u TERM", "", false}, {plain, "| cat", false}};
  for (const auto& [environment, redirection, coloured] : cases) {
    const auto screen = screenOf(OnTerminal(replay(mixed, environment, redirection)).readAll());
    const std::string red = coloured ? "\x1b[31m" : "";
    const std::string yellow = coloured ? "\x1b[33m" : "";
    const std::string end = coloured ? "\x1b[0m" : "";
    EXPECT_THAT(screen, ElementsAre(answer, yellow + refused + end, StartsWith(red + malformed)))
        << environment << redirection;
    EXPECT_EQ(screen.at(2).ends_with("\x1b[0m"), coloured) << environment << redirection;
  }
}

// An endpoint that answers when it is told to, and a script that waits for it.
class ProgressTest : public TerminalTest {
 protected:
  ProgressTest()
      : endpoint([this](std::size_t) {
          released.wait();
          return 204;
        }) {
    writeSettings("VTMod", endpoint.settings());
  }
  ~ProgressTest() override { release(); }
  void release() {
    if (std::exchange(held_, false)) answers_.set_value();
  }

  const std::string script = R"({"call":"startup"}
{"call":"firePageView","pageId":"p"}
{"call":"drain","seconds":60}
{"call":"firePageView","pageId":"q"}
)";
  static std::vector<std::string> expectedAnswers() {
    return {R"({"call":"startup","result":true})", R"({"call":"firePageView","result":true})",
            R"({"call":"drain","result":true})", R"({"call":"firePageView","result":true})"};
  }

 private:
  std::promise<void> answers_;
  bool held_ = true;

 protected:
  std::shared_future<void> released{answers_.get_future()};
  tools::LocalEndpoint endpoint;
};

TEST_F(ProgressTest, IsShownWhereverStandardErrorIsATerminalAndLeavesTheAnswersAlone) {
  const std::string file = (scratch() / "answers").string();
  OnTerminal program(replay(script, "VANTAMO_DEBUG=0 TERM=xterm", "> " + file));
  EXPECT_THAT(program.readUntil("deliver"),
              HasSubstr("\r\x1b[Kline 3, 69 %, 1 message to deliver"));
  release();
  EXPECT_THAT(screenOf(program.readAll()), ElementsAre());
  std::ifstream answers(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(answers, line);) lines.push_back(line);
  EXPECT_EQ(lines, expectedAnswers());
}

TEST_F(ProgressTest, DoesNotMixWithAnswersOnTheSameTerminal) {
  OnTerminal program(replay(script, "VANTAMO_DEBUG=0 TERM=xterm"));
  EXPECT_THAT(program.readUntil("deliver"), HasSubstr("1 message to deliver"));
  release();
  EXPECT_THAT(screenOf(program.readAll()), testing::ContainerEq(expectedAnswers()));
}

TEST_F(ProgressTest, DoesNotMixWithTheDebugLog) {
  OnTerminal program(replay(script, "VANTAMO_DEBUG=1 TERM=xterm", "> /dev/null"));
  EXPECT_THAT(program.readUntil("deliver"), HasSubstr("1 message to deliver"));
  release();
  for (const std::string& line : screenOf(program.readAll())) {
    EXPECT_THAT(line, Not(HasSubstr("deliver"))) << "left over";
    EXPECT_THAT(line, Not(HasSubstr("OVERWRITTEN")));
  }
}

TEST_F(ProgressTest, StaysAwayFromDumbTerminalsAndFiles) {
  release();
  const std::string file = (scratch() / "diagnostics").string();
  // Long enough for progress to be shown where it is.
  const std::string slow = script + R"({"call":"sleep","seconds":0.7})" + "\n";
  for (const auto& [environment, redirection] : std::vector<std::pair<std::string, std::string>>{
           {"TERM=dumb", ""}, {"TERM=xterm", "2> " + file}}) {
    OnTerminal program(replay(slow, "VANTAMO_DEBUG=0 " + environment, redirection));
    EXPECT_THAT(program.readAll(), Not(HasSubstr("line 5"))) << environment;
  }
  EXPECT_EQ(std::filesystem::file_size(file), 0U);
}

// --- Completion

std::vector<std::string> linesOf(const std::string& command) {
  std::vector<std::string> lines;
  FILE* pipe = ::popen(command.c_str(), "r");
  std::array<char, 65536> line{};
  while (std::fgets(line.data(), line.size(), pipe) != nullptr) {
    lines.emplace_back(line.data(), std::strlen(line.data()) - 1);
  }
  EXPECT_EQ(::pclose(pipe), 0) << command;
  return lines;
}

// `words` as bash splits them; the last one is to be completed. Where names of files are left to
// the shell, the answer is what it is told.
std::vector<std::string> completionsOf(const std::string& words) {
  return linesOf("bash --norc -c 'set -u; source " VANTAMO_COMPLETION
                 "; compopt() { COMPREPLY+=(\"$2\"); }; COMP_WORDS=(" VANTAMO_PROGRAM " " +
                 words +
                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _vantamo " VANTAMO_PROGRAM
                 "; for word in \"${COMPREPLY[@]}\"; do echo \"$word\"; done'");
}

TEST(CompletionTest, OffersWhatMayComeNext) {
  using Words = std::vector<std::string>;
  const Words file = {"default"};
  const Words folder = {"dirnames"};
  const std::vector<std::pair<std::string, Words>> cases = {
      {"q", {"queue"}},
      {"nothing", {}},
      {"--v", {"--version"}},
      {"queue p", {"purge"}},
      {"queue list a", folder},
      {"replay a", file},
      {"replay x \"\"", {"--help", "--bundle", "--drain"}},
      {"replay --bundle a", folder},
      {"replay --bundle = a", folder},
      {"replay --bundle =", folder},
      {"replay --drain \"\"", {}},
      {"replay --drain 5 a", file},
      {"replay --drain = 5 --", {"--help", "--bundle"}},
      {"replay -- --", file},
      {"doctor --certificates a", file},
      {"queue erase --y", {"--yes"}},
      {"queue purge d --b", {}}};
  for (const auto& [words, expected] : cases) {
    Words found = completionsOf(words);
    std::ranges::sort(found);
    Words sorted = expected;
    std::ranges::sort(sorted);
    EXPECT_EQ(found, sorted) << words;
  }
}

std::set<std::string> optionsIn(const std::vector<std::string>& help) {
  const std::regex option("--[a-z][a-z-]*");
  std::set<std::string> options;
  for (const std::string& line : help) {
    if (line.find("Example") == 0) break;
    if (line.find("  -") != 0) continue;
    const std::string names = line.substr(0, line.find("   ", 2));
    for (std::sregex_iterator at(names.begin(), names.end(), option), end; at != end; ++at) {
      options.insert(at->str());
    }
  }
  return options;
}

// Every command is asked for, from the top: what `--help` lists has to be offered, and the reverse.
void checkCommand(const std::string& command) {
  const auto help = linesOf(VANTAMO_PROGRAM " " + command + " --help");
  const auto offered = completionsOf(command + " --");
  const std::set<std::string> options(offered.begin(), offered.end());
  EXPECT_GE(options.size(), 1U) << command;
  EXPECT_THAT(options, testing::ContainerEq(optionsIn(help))) << command;
  const auto list = std::ranges::find(help, "Subcommands:");
  for (auto line = list; line != help.end() && !line->empty(); ++line) {
    if (!line->starts_with("  ") || (*line)[2] == ' ') continue;
    const std::string name = line->substr(2, line->find(' ', 2) - 2);
    EXPECT_THAT(completionsOf(command + " " + name), ElementsAre(name)) << command;
    checkCommand(command + " " + name);
  }
}

TEST(CompletionTest, KnowsEveryCommandAndOptionThatHelpLists) { checkCommand(""); }

TEST_F(TerminalTest, TheTabulatorCompletesInAShell) {
  std::filesystem::create_directories(scratch() / "a folder" / "inside");
  std::ofstream(scratch() / "a file") << "";
  OnTerminal shell("cd " + scratch().string() +
                   " && exec env TERM=xterm PS1=ready: bash --norc -i");
  shell.readUntil("ready:");
  shell.type("source " VANTAMO_COMPLETION "; PATH=$(dirname " VANTAMO_PROGRAM
             "):$PATH; PS1=s\"\"et:\n");
  shell.readUntil("set:");
  shell.type("vantamo do\t--bu\ta\\ \t");
  EXPECT_THAT(shell.readUntil("folder/"), HasSubstr("doctor --bundle a\\ folder/"));
  shell.type("\025exit\n");
  shell.readAll();
}

}  // namespace
}  // namespace vantamo::test
