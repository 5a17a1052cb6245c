#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/directories.h"
#include "tests/kit/module_test.h"
#include "vantamo/notification_center.h"

namespace vantamo::test {
namespace {

using ForkTest = ModuleTest;

// What a child of a process with a busy library sees: the number of the step that failed, or 0.
int seenByChild(const std::string& cachesDirectory) {
  alarm(30);  // a hang is a failure
  if (Vantamo::firePageView({.pageId = "p"}) || Vantamo::startNewSession()) return 1;
  if (Vantamo::shutdown() || !(Vantamo::sessionId() + Vantamo::visitorId()).empty()) return 2;
  NotificationCenter::defaultCenter().post("name");
  if (platform::cachesDirectory() != cachesDirectory) return 3;
  RecordingCore& core = RecordingCore::sharedInstance();
  if (core.calls.postMessage != 0) return 4;
  core.settings["VTMod"] = {{"PostMessageUrl", "https://tags.example/collect"}};
  if (!Vantamo::startup() || !Vantamo::firePageView({.pageId = "p"})) return 5;
  return core.calls.postMessage > 0 && !Vantamo::visitorId().empty() ? 0 : 6;
}

TEST_F(ForkTest, AChildIsInertUntilItStartsTheLibraryAnew) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer's allocator may stay locked in a child of a busy process";
#endif
  overrides.logSink = [](std::string_view) {};
  setPlatformOverrides(overrides);
  ASSERT_TRUE(Vantamo::startup());
  std::atomic<bool> done{false};
  const std::vector<std::function<void()>> busy = {
      [] { Vantamo::firePageView({.pageId = "p"}); }, [] { Vantamo::startNewSession(); },
      [this] { setPlatformOverrides(overrides); },
      [] {
        NotificationCenter& center = NotificationCenter::defaultCenter();
        center.addObserver(&center, "name", [](const void*) {});
        center.post("name");
        center.removeObserver(&center);
      }};
  std::vector<std::thread> threads;
  for (const auto& work : busy) {
    threads.emplace_back([&done, &work] {
      while (!done) work();
    });
  }
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) _exit(seenByChild(caches().string()));
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace vantamo::test
