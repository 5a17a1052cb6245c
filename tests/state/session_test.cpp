#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <thread>

#include "state/session_ids.h"
#include "state/vt_mod_session.h"
#include "support/json.h"
#include "tests/kit/host_test.h"

namespace vantamo::test {
namespace {

using testing::Contains;
using testing::MatchesRegex;

class SessionTest : public HostTest {
 protected:
  [[nodiscard]] std::filesystem::path file() const {
    return caches() / "VTSessions" / "VTSessions.json";
  }
  void writeFile(std::string_view content) const {
    std::filesystem::create_directories(file().parent_path());
    std::ofstream(file()) << content;
  }
  [[nodiscard]] std::string readFile() const {
    std::ifstream stream(file());
    return {std::istreambuf_iterator<char>(stream), {}};
  }
};

constexpr const char* newVisitor = "10[0-9]{21}";

TEST_F(SessionTest, FirstLaunchWritesBothIdsForThisUserOnly) {
  umask(0777);
  const VTModSession session;
  EXPECT_THAT(*session.cjuid(), MatchesRegex(newVisitor));
  EXPECT_THAT(*session.cjsid(), MatchesRegex("[1-5][0-9]{9}"));
  EXPECT_EQ(readFile(),
            "{\"cjuid\":\"" + *session.cjuid() + "\",\"cjsid\":\"" + *session.cjsid() + "\"}");
  EXPECT_THAT(logTexts(), Contains("Session Directory  Created"));
  struct stat info {};
  ASSERT_EQ(stat(file().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0600U);
  ASSERT_EQ(stat(file().parent_path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0700U);
  ASSERT_EQ(chmod(file().parent_path().c_str(), 0775), 0);
  const VTModSession next;
  ASSERT_EQ(stat(file().parent_path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0700U);
}

TEST_F(SessionTest, WhatStandsInTheFilesPlaceOrBesideItIsNotTrusted) {
  const auto planted = scratch() / "planted";
  std::ofstream(planted) << R"({"cjuid":"planted"})";
  std::filesystem::create_directories(file().parent_path());
  std::filesystem::create_symlink(planted, file());
  const auto leftover = file().string() + "." + platform::randomUuid();
  const auto young = file().string() + "." + platform::randomUuid();
  const auto foreign = file().string() + ".copy";
  for (const auto& name : {leftover, young, foreign}) std::ofstream(name) << "x";
  for (const auto& name : {leftover, foreign}) {
    std::filesystem::last_write_time(
        name, std::filesystem::file_time_type::clock::now() - std::chrono::hours(2));
  }
  VTModSession session;
  EXPECT_THAT(*session.cjuid(), MatchesRegex(newVisitor));
  EXPECT_FALSE(std::filesystem::is_symlink(file()));
  EXPECT_EQ(std::filesystem::file_size(planted), 19U);
  EXPECT_FALSE(std::filesystem::exists(leftover));
  EXPECT_TRUE(std::filesystem::exists(young) && std::filesystem::exists(foreign));
  // All of the visitor's goes, at whatever age.
  EXPECT_TRUE(session.eraseVisitor(false));
  EXPECT_FALSE(std::filesystem::exists(file()) || std::filesystem::exists(young));
}

TEST_F(SessionTest, ProcessesReadAndWriteOneAfterTheOther) {
  writeFile("no JSON");
  const int folder = open(file().parent_path().c_str(), O_RDONLY | O_CLOEXEC);
  int locksInBetween = 0;  // the log is written between reading and writing
  overrides.logSink = [&](std::string_view) {
    if (flock(folder, LOCK_EX | LOCK_NB) == 0) ++locksInBetween;
  };
  setPlatformOverrides(overrides);
  const VTModSession session;
  EXPECT_EQ(locksInBetween, 0);
  EXPECT_EQ(flock(folder, LOCK_EX | LOCK_NB), 0);
  VTModSession next;  // goes on beside a stopped process
  EXPECT_EQ(next.cjuid(), session.cjuid());
  EXPECT_TRUE(next.newSession());
}

TEST_F(SessionTest, AKilledProcessLeavesAWholeFile) {
  const auto visitor = VTModSession().cjuid();
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      for (VTModSession session;;) session.newSession();
    }
    const std::string before = readFile();
    while (readFile() == before) std::this_thread::yield();
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(support::parseJson(readFile()).map().stringAt("cjuid"), visitor);
  }
}

TEST_F(SessionTest, WhatTheFileHoldsDecidesTheVisitor) {
  const std::string known = "1234567890123456";
  const std::vector<std::pair<std::string, std::string>> cases = {
      // content, pattern of the id
      {R"({"cjuid":"1234567890123456","cjsid":"1"})", known},
      {R"({"cjuid":"x"})", "x"},
      {R"({"cjuid":""})", newVisitor},
      {R"({"cjuid":7})", newVisitor},
      {R"({"cjuid":null})", newVisitor},
      {"{}", newVisitor},
      {"", newVisitor},
      {"{\"cjuid\":\"12", newVisitor},
      {"{\"cjuid\":\"\xff\"}", newVisitor},
      {std::string(100000, '['), newVisitor},
      {R"({"cjuid":")" + std::string(70000, '7') + "\"}", std::string(70000, '7')},
  };
  for (const auto& [content, visitor] : cases) {
    SCOPED_TRACE(content.substr(0, 60));
    writeFile(content);
    const VTModSession session;
    EXPECT_THAT(*session.cjuid(), MatchesRegex(visitor));
    EXPECT_NE(*session.cjsid(), "1");
    const Value written = support::parseJson(readFile());
    EXPECT_EQ(written.map().stringAt("cjuid"), *session.cjuid());
    EXPECT_EQ(written.map().stringAt("cjsid"), *session.cjsid());
  }
}

TEST_F(SessionTest, JsonThatIsNoObjectLeavesIdsAndFileAlone) {
  VTModSession session;
  const auto visitor = session.cjuid();
  const auto id = session.cjsid();
  for (const char* content : {"[]", "[{\"cjuid\":\"x\"}]", "\"x\"", "3", "null"}) {
    writeFile(content);
    clearLog();
    EXPECT_FALSE(session.newSession());
    EXPECT_THAT(logTexts(), Contains("JSONObjectWithData did not return a dictionary"));
    EXPECT_EQ(session.cjuid(), visitor);
    EXPECT_EQ(session.cjsid(), id);
    EXPECT_EQ(readFile(), content);
  }
}

TEST_F(SessionTest, EverySessionIsNewForTheSameVisitor) {
  VTModSession session;
  const auto visitor = session.cjuid();
  const auto id = session.cjsid();
  session.setCjuid("in memory only");
  EXPECT_EQ(session.visitorId(), "in memory only");
  EXPECT_TRUE(session.newSession());
  EXPECT_EQ(session.cjuid(), visitor);
  EXPECT_NE(session.cjsid(), id);
}

TEST_F(SessionTest, UnusableCachesDirectoryFailsQuietlyWithIdsInMemory) {
  std::ofstream(scratch() / "plain file") << "x";
  for (const auto& folder : {(scratch() / "plain file").string(), std::string("/proc/nowhere")}) {
    overrides.cachesDirectory = folder;
    setPlatformOverrides(overrides);
    clearLog();
    VTModSession session;
    EXPECT_FALSE(session.newSession());
    EXPECT_THAT(*session.cjuid(), MatchesRegex(newVisitor));
    EXPECT_THAT(logTexts(), Contains("Session Directory Not Created"));
  }
  // A folder in the file's place: it can be neither read nor replaced.
  overrides.cachesDirectory = caches().string();
  setPlatformOverrides(overrides);
  std::filesystem::create_directories(file() / "in the way");
  VTModSession session;
  EXPECT_FALSE(session.newSession());
  EXPECT_THAT(logTexts(), Contains("Error updating session file"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file().parent_path()), {}), 1);
}

TEST_F(SessionTest, CachesDirectoryComesFromTheEnvironment) {
  overrides.cachesDirectory.reset();
  setPlatformOverrides(overrides);
  setenv("XDG_CACHE_HOME", "/somewhere/", 1);
  const VTModSession session;
  EXPECT_EQ(session.sessionFilePath(), "/somewhere/VTSessions/VTSessions.json");
  setenv("XDG_CACHE_HOME", "relative", 1);
  setenv("HOME", "/home/ada", 1);
  EXPECT_EQ(session.sessionFilePath(), "/home/ada/.cache/VTSessions/VTSessions.json");
}

TEST_F(SessionTest, ConcurrentSessionsLeaveAWholeFile) {
  VTModSession session;
  const auto visitor = session.cjuid();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&session] {
      for (int j = 0; j < 20; ++j) session.newSession();
    });
  }
  for (int i = 0; i < 200; ++i) {
    const Value seen = support::parseJson(readFile());
    EXPECT_EQ(seen.map().stringAt("cjuid"), visitor);
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(SessionIdTest, IdsCoverTheirWholeRange) {
  EXPECT_EQ(state::visitorIdFrom(0, 0), "10000000000010000000000");
  EXPECT_EQ(state::visitorIdFrom(0xFFFFFFFF, 0xFFFFFFFF), "10429496729514294967295");
  EXPECT_EQ(state::sessionIdFrom(0), "1000000000");
  EXPECT_EQ(state::sessionIdFrom(0xFFFFFFFF), "5294967295");
}

}  // namespace
}  // namespace vantamo::test
