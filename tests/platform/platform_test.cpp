#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/bundle.h"
#include "platform/device.h"
#include "platform/directories.h"
#include "platform/file.h"
#include "platform/process_singleton.h"
#include "platform/sha1.h"
#include "platform/url_host.h"
#include "tests/kit/host_test.h"
#include "vantamo/module_directory.h"
#include "vantamo/notification_center.h"

namespace vantamo::test {
TEST(UrlHostTest, FindsTheHostOrSaysThatThereIsNone) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"https://tags.example/collect", "tags.example"},
      {"http://user:pw@tags.example:8080/x?y#z", "tags.example"},
      {"http://127.0.0.1:9", "127.0.0.1"},
      {"http://[::1]:80/x", "::1"},
      {"/only/a/path", ""},
      {"mailto:a@example.org", ""},
      {"http:///x", ""},
      {"http://a b/", std::nullopt},
      {"http://[::1", std::nullopt},
      {std::string("http://a\0b/", 11), std::nullopt},
  };
  for (const auto& [url, host] : cases) EXPECT_EQ(platform::urlHost(url), host) << url;
}

TEST_F(HostTest, BundlesAreFoundWhereTheyStand) {
  writeSettings("VTMod", "{}");
  EXPECT_EQ(platform::mainBundleFolder(), bundle().string());
  EXPECT_EQ(platform::pathForResource(bundle().string(), "VTMod", "bundle"),
            (bundle() / "VTMod.bundle").string());
  std::ofstream(bundle() / "File.bundle") << "x";
  EXPECT_FALSE(platform::pathForResource(bundle().string(), "File", "bundle"));
  EXPECT_FALSE(platform::pathForResource(bundle().string(), "Nothing", "bundle"));

  setPlatformOverrides({});
  EXPECT_EQ(platform::mainBundleFolder(), platform::executableFolder());
  static const int ownSymbol = 0;
  EXPECT_EQ(platform::bundleFolderOfSymbol(&ownSymbol), platform::executableFolder());
  const int onTheStack = 0;
  EXPECT_FALSE(platform::bundleFolderOfSymbol(&onTheStack));
}

TEST_F(HostTest, TheSystemTellsItsVersionUnlessTheHostDoes) {
  EXPECT_TRUE(platform::systemVersion().has_value());
  overrides.systemVersion = "17.4";
  setPlatformOverrides(overrides);
  EXPECT_EQ(platform::systemVersion(), "17.4");
}

TEST_F(HostTest, FilesAreReadAndReplacedWhole) {
  const std::string path = (scratch() / "file").string();
  EXPECT_EQ(platform::replaceFile(path, "first"), platform::FileWrite::done);
  EXPECT_EQ(platform::replaceFile(path, ""), platform::FileWrite::done);
  EXPECT_EQ(platform::readFile(path, 10), "");
  EXPECT_EQ(platform::replaceFile(path, "0123456789"), platform::FileWrite::done);
  EXPECT_EQ(platform::readFile(path, 10), "0123456789");
  EXPECT_FALSE(platform::readFile(path, 9));
  EXPECT_FALSE(platform::readFile(scratch().string(), 10));
  EXPECT_EQ(platform::replaceFile(path + "/below", "x"), platform::FileWrite::notOpened);
  EXPECT_TRUE(platform::createDirectories((scratch() / "a/b//c").string()));
  EXPECT_FALSE(platform::createDirectories(path));
  EXPECT_EQ(platform::sha1Hex("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST_F(HostTest, OnlyAFileThatIsCertainlyOursIsWrittenInPlace) {
  // No room for the name of a temporary file.
  const std::string path = (scratch() / std::string(230, 'f')).string();
  EXPECT_EQ(platform::replaceFile(path, "x"), platform::FileWrite::notOpened);
  std::ofstream(path) << "before";
  EXPECT_EQ(platform::replaceFile(path, "now"), platform::FileWrite::done);
  const std::string other = (scratch() / "other").string();
  std::filesystem::create_hard_link(path, other);
  EXPECT_EQ(platform::replaceFile(path, "x"), platform::FileWrite::notOpened);
  std::filesystem::remove(path);
  std::filesystem::create_symlink(other, path);
  EXPECT_EQ(platform::replaceFile(path, "x"), platform::FileWrite::notOpened);
  EXPECT_EQ(platform::readFile(path, 10), "now");
  EXPECT_FALSE(platform::readFile(path, 10, platform::Link::refused));
}

struct Made {
  explicit Made(std::atomic<int>& counter) : number(++counter) {
    if (number == 1) throw std::runtime_error("not yet");
  }
  static void abandonInChild(Made& made) noexcept { made.number = -made.number; }
  int number;
};

TEST(ProcessSingletonTest, IsMadeOnceInEachProcess) {
  static constinit platform::ProcessSingleton<Made> singleton;
  static std::atomic<int> counter{0};
  const auto get = []() -> Made& { return singleton.get([] { return new Made(counter); }); };
  EXPECT_THROW(get(), std::runtime_error);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([&] { EXPECT_EQ(get().number, 2); });
  for (std::thread& thread : threads) thread.join();
  Made& ours = get();
  const pid_t child = fork();
  if (child == 0) _exit(ours.number == -2 && get().number == 3 && get().number == 3 ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(get().number, 2);
}

TEST(ModuleDirectoryTest, ErasesEveryModuleAndReportsEachFailure) {
  static int calls = 0;
  registerModuleErasure("A", []() -> bool { throw 7; });
  registerModuleErasure("B", [] { return ++calls > 0; });
  EXPECT_FALSE(eraseModuleData());
  registerModuleErasure("A", [] { return ++calls > 0; });
  EXPECT_TRUE(eraseModuleData());
  EXPECT_EQ(calls, 3);
}

TEST(NotificationCenterTest, HandlersHearUntilTheirObserverIsRemoved) {
  NotificationCenter& center = NotificationCenter::defaultCenter();
  const int first = 0;
  const int second = 0;
  std::string heard;
  center.addObserver(&first, "name", [&](const void* sender) {
    heard += sender == &second ? 'a' : '?';
    center.removeObserver(&first);  // from inside its own handler
  });
  center.addObserver(&second, "name", [&](const void*) { heard += 'b'; });
  center.addObserver(&second, "other", [&](const void*) { heard += 'c'; });
  center.post("name", &second);
  center.post("name");
  center.removeObserver(&second);
  center.post("name");
  center.post("other");
  EXPECT_EQ(heard, "abb");
}

}  // namespace vantamo::test
