// Runs `vantamo queue` and `vantamo doctor` on what an application has left.

#include <sys/wait.h>

#include "cores/default/durable_queue.h"
#include "tests/kit/host_test.h"
#include "tools/local_endpoint.h"

namespace vantamo::test {
namespace {

using core::DurableQueue;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class InspectTest : public HostTest {
 protected:
  struct Run {
    int status;
    std::string output;
    std::string diagnostics;
  };

  Run vantamo(const std::string& arguments) const {
    const std::string output = scratch().string() + "/output";
    const std::string diagnostics = scratch().string() + "/diagnostics";
    const int status =
        std::system(("VANTAMO_DEBUG=0 XDG_CACHE_HOME=" + caches().string() +
                     " " VANTAMO_PROGRAM " " + arguments + " > " + output + " 2> " + diagnostics)
                        .c_str());
    return {WEXITSTATUS(status), contentOf(output), contentOf(diagnostics)};
  }
  static std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  Run queue(const std::string& action, const std::string& rest = "") const {
    return vantamo("queue " + action + " " + folder + " " + rest);
  }
  static std::string id(char digit) {
    return std::string(8, digit) + "-0000-4000-8000-000000000000";
  }

  // Two messages that wait and two dead letters, as an application leaves them.
  void leaveMessages() const {
    DurableQueue queue(folder);
    for (const char digit : {'1', '2', '3', '4'}) {
      queue.append(
          {id(digit), "VTMod", "b\x1b\xC2\x9B" + std::string(1, digit), 1'700'000'000'123});
    }
    static_cast<void>(queue.takeIn());
    for (int i = 0; i < 2; ++i) {
      ASSERT_NE(queue.front(), nullptr);
      queue.bury(queue.front()->id, 400, "status 400", 1'700'000'001'000, {});
    }
    queue.rest();
  }

  const std::string folder = caches().string() + "/NQCore/app";
};

struct Case {
  std::string first;
  std::string second;
  int status;
  testing::Matcher<std::string> output;
};

TEST_F(InspectTest, AQueueIsShownAndChanged) {
  leaveMessages();
  const std::string accepted = "2023-11-14T22:13:20.123Z";
  const std::string waiting = id('3') + "\t" + accepted + "\t5\tVTMod";
  const std::string dead =
      "\t400\tstatus 400\t" + accepted + "\t2023-11-14T22:13:21.000Z\t5\tVTMod\n";
  const std::vector<Case> cases = {
      {"list", "", 0, waiting + "\n" + id('4') + waiting.substr(36) + "\n"},
      {"list", "--bodies", 0, HasSubstr(waiting + "\tb\\x1b\\x9b3\n")},
      {"list", "--json", 0,
       HasSubstr(R"({"id":")" + id('3') + R"(","accepted":")" + accepted +
                 R"(","bytes":5,"module":)")},
      {"dead", "", 0, id('1') + dead + id('2') + dead},
      {"dead", "--json --bodies", 0, HasSubstr(R"("status":400,"reason":"status 400",)")},
      {"replay", id('2') + " none", 1, id('2') + "\n"},
      {"list", "", 0, testing::MatchesRegex("3[^\n]*\n4[^\n]*\n2[^\n]*\n")},
      {"purge", "", 0, id('1') + "\n"},
      {"erase", "", 2, ""},
      {"list", "", 0, Not("")},
      {"erase", "--yes --json", 0, R"({"erased":")" + folder + "/0\"}\n"},
      {"list", "", 0, ""}};
  for (const Case& row : cases) {
    const Run run = queue(row.first, row.second);
    EXPECT_EQ(run.status, row.status) << row.first << run.diagnostics;
    EXPECT_THAT(run.output, row.output);
    EXPECT_EQ(run.diagnostics.empty(), row.status == 0) << run.diagnostics;
  }
}

TEST_F(InspectTest, FoldersInUseAreNamedAndOtherFoldersLeftAlone) {
  leaveMessages();
  std::filesystem::rename(folder + "/0", folder + "/7");
  const DurableQueue running(folder);
  const Run run = queue("list");
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.output, HasSubstr(id('3')));
  EXPECT_THAT(run.diagnostics, HasSubstr(folder + "/0: belongs to a running process"));
  for (const std::string& wrong : {folder + "/0", bundle().string(), std::string("/nowhere")}) {
    EXPECT_EQ(vantamo("queue erase --yes " + wrong).status, 2) << wrong;
  }
  EXPECT_TRUE(std::filesystem::is_empty(bundle()));
}

TEST_F(InspectTest, TheDoctorTellsWhatKeepsTagsFromArriving) {
  const tools::LocalEndpoint endpoint;
  const std::vector<Case> cases = {
      {endpoint.settings(), "{}", 0,
       AllOf(HasSubstr("ok    connection: "), Not(HasSubstr("\x1b")))},
      {endpoint.settings(), "{", 1, HasSubstr("FAIL  settings: ")},
      {endpoint.settings(), R"({"MaxDeadLetters":-1,"ApplicationId":"/"})", 1,
       AllOf(HasSubstr("MaxDeadLetters must"), HasSubstr("ApplicationId must"))},
      {R"({"PostMessageUrl":"http://127.0.0.1:1"})", "{}", 1,
       AllOf(HasSubstr("warn  settings: AppName"), HasSubstr("FAIL  connection: "))},
      {R"({"PostMessageUrl":"http://nothing.invalid"})", "{}", 1, HasSubstr("FAIL  name: ")},
      {R"({"PostMessageUrl":"ftp://h/"})", "{}", 1, HasSubstr("FAIL  endpoint: ")},
      {R"({"PostMessageUrl":7})", "{}", 1, HasSubstr("FAIL  endpoint: ")}};
  for (const Case& row : cases) {
    writeSettings("VTMod", row.first);
    writeSettings("NQCore", row.second);
    const Run run = vantamo("doctor --bundle " + bundle().string());
    EXPECT_EQ(run.status, row.status) << run.output << run.diagnostics;
    EXPECT_THAT(run.output, row.output);
  }
  EXPECT_FALSE(std::filesystem::exists(caches()));  // nothing stays of the probe
  std::ofstream(caches()) << "in the way";
  EXPECT_THAT(vantamo("doctor --bundle " + bundle().string()).output, HasSubstr("FAIL  queue: "));
  EXPECT_EQ(vantamo("doctor --bundle /nowhere").status, 2);
}

}  // namespace
}  // namespace vantamo::test
