#include "tools/screenshot.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <iostream>
#include <memory>
#include <vector>

#include "platform/random.h"

namespace vantamo::tools {
namespace {

namespace fs = std::filesystem;

// Its profile goes with it.
struct Profile {
  const fs::path path = fs::temp_directory_path() / ("vantamo-page-" + platform::randomUuid());

  Profile() = default;
  Profile(const Profile&) = delete;
  Profile& operator=(const Profile&) = delete;
  ~Profile() {
    std::error_code error;
    fs::remove_all(path, error);
  }
};

// Runs a program, silent, and answers whether it ended well.
bool runQuietly(std::vector<std::string> words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  struct Actions {
    posix_spawn_file_actions_t value{};
    Actions() { ::posix_spawn_file_actions_init(&value); }
    Actions(const Actions&) = delete;
    Actions& operator=(const Actions&) = delete;
    ~Actions() { ::posix_spawn_file_actions_destroy(&value); }
  } actions;
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    ::posix_spawn_file_actions_addopen(&actions.value, stream, "/dev/null", O_WRONLY, 0);
  }
  pid_t child = 0;
  if (::posix_spawnp(&child, arguments[0], &actions.value, nullptr, arguments.data(), environ) !=
      0) {
    return false;
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

bool takeScreenshot(const std::string& url, const std::string& file) {
  const Profile profile;
  std::error_code error;
  const fs::path target = fs::absolute(file);
  fs::remove(target, error);
  // For root, Chromium has no sandbox; it opens nothing but this page.
  std::vector<std::string> words = {"timeout",
                                    "60",
                                    "chromium",
                                    "--headless=new",
                                    "--disable-gpu",
                                    "--hide-scrollbars",
                                    "--no-first-run",
                                    "--window-size=1360,860",
                                    "--user-data-dir=" + profile.path.string(),
                                    "--screenshot=" + target.string()};
  if (::geteuid() == 0) words.emplace_back("--no-sandbox");
  words.push_back(url);
  if (runQuietly(words) && fs::exists(target, error)) return true;
  std::cerr << "chromium is not there, or could not open " << url << '\n';
  return false;
}

}  // namespace vantamo::tools
