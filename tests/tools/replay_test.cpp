// Runs the program itself: answers, exit status and what arrives.

#include <sys/wait.h>

#include <array>
#include <sstream>

#include "tests/kit/host_test.h"
#include "tools/local_endpoint.h"

namespace vantamo::test {

using Collector = tools::LocalEndpoint;
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class ReplayTest : public HostTest {
 protected:
  struct Run {
    int status = -1;
    std::vector<std::string> answers;
    std::string diagnostics;
  };

  // `arguments` follow "vantamo replay"; BUNDLE and SCRIPT stand for the test's own.
  Run replay(const std::string& script, std::string arguments = "--bundle BUNDLE",
             const std::string& debug = "0") {
    std::ofstream(scratch() / "script") << script;
    for (const auto& [word, path] :
         {std::pair("BUNDLE", bundle()), {"SCRIPT", scratch() / "script"}}) {
      const std::size_t at = arguments.find(word);
      if (at != std::string::npos) arguments.replace(at, std::strlen(word), path.string());
    }
    const std::string command = "XDG_CACHE_HOME=" + caches().string() + " VANTAMO_DEBUG=" + debug +
                                " " VANTAMO_PROGRAM " replay " + arguments + " < " +
                                (scratch() / "script").string() + " 2> " +
                                (scratch() / "diagnostics").string();
    Run run;
    FILE* pipe = popen(command.c_str(), "r");
    std::array<char, 65536> line{};
    while (std::fgets(line.data(), line.size(), pipe) != nullptr) {
      std::string answer = line.data();
      EXPECT_EQ(answer.back(), '\n');
      answer.pop_back();
      run.answers.push_back(std::move(answer));
    }
    run.status = WEXITSTATUS(pclose(pipe));
    std::stringstream text;
    text << std::ifstream(scratch() / "diagnostics").rdbuf();
    run.diagnostics = text.str();
    return run;
  }
};

TEST_F(ReplayTest, AnswersEveryCallOfTheFacade) {
  Collector collector;
  writeSettings("VTMod", collector.settings());
  const Run run = replay(R"({"call":"libraryVersion"}
{"call":"getPRWAdvertisingId"}
{"call":"visitorId"}
{"call":"startup"}
{"call":"setPRWAdvertisingId","advertisingId":"ad"}
{"call":"getPRWAdvertisingId"}
{"call":"sessionId"}
{"call":"activateClientId","clientId":"9"}
{"call":"firePageView","pageId":"p","category":null,"attributes":["a",""],"vqmmc":["x","y"]}
{"call":"resetToDefaultClientId"}
{"call":"fireProductview","pageId":"p","productId":"1","productName":"n"}
{"call":"fireShopAction5","productId":"1","productName":"n","quantity":"123456789","baseUnitPrice":"1","currencyCode":"EUR","attributes":[]}
{"call":"fireShopAction9","productId":"1"}
{"call":"setOptOut","mode":"anonymous"}
{"call":"getOptOut"}
{"call":"fireImpression","pageId":"p","vqsp":["s"]}
{"call":"startNewSession"}
{"call":"setOptOut"}
{"call":"drain","seconds":20}
{"call":"sleep","seconds":0}
{"call":"shutdown"}
)");
  EXPECT_EQ(run.status, 0) << run.diagnostics;
  EXPECT_EQ(run.diagnostics, "");
  std::string results;
  for (const std::string& answer : run.answers) {
    results += answer.substr(answer.find("\"result\":") + 9) + " ";
  }
  EXPECT_EQ(run.answers.front(), R"({"call":"libraryVersion","result":"1.1.28"})");
  EXPECT_THAT(results,
              MatchesRegex(R"("1.1.28"\} null\} ""\} true\} true\} "ad"\} "[0-9]{10}"\} true\} )"
                           R"(true\} true\} true\} false\} false\} true\} "anonymous"\} true\} )"
                           R"(true\} false\} true\} true\} true\} )"));
  const auto received = collector.wait(4);
  ASSERT_EQ(received.size(), 4U);
  EXPECT_EQ(received[0].key("ci") + received[1].key("ci"), "9123");
  EXPECT_EQ(received[0].key("ul"), "APP_APPLE_App/?vq_mmc=x-_-y");
  EXPECT_EQ(received[0].key("pv_a2"), "");
  EXPECT_EQ(received[2].key("ha1"), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(received[3].key("cjuid"), "1000000000000003");
}

TEST_F(ReplayTest, MalformedLinesAreToldAndPassedOver) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"nonsense", "not JSON: column 2"},
      {"{\"call\":\"startup\"} x", "not JSON"},
      {"[]", "not a JSON object"},
      {"\"startup\"", "not a JSON object"},
      {"{}", "no string member"},
      {R"({"call":7})", "no string member"},
      {R"({"call":"start"})", "unknown call"},
      {R"({"call":"startup","x":null})", "unknown member"},
      {R"({"call":"fireElement","elementId":1})", "must be a string"},
      {R"({"call":"fireElement","attributes":"a"})", "must be a list of strings"},
      {R"({"call":"fireElement","attributes":["a",null]})", "must be a list of strings"},
      {R"({"call":"sleep","seconds":"1"})", "must be a number"},
      {R"({"call":"sleep","seconds":-1})", "from 0 to"},
      {R"({"call":"drain","seconds":true})", "must be a number"},
  };
  std::string script = "\n  \t\r\n";
  for (const auto& [line, error] : cases) script += line + "\n\n";
  const Run run = replay(script + R"({"call":"getOptOut"})");
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.answers.size(), cases.size() + 1);
  for (std::size_t i = 0; i < cases.size(); ++i) {
    EXPECT_THAT(run.answers[i],
                StartsWith("{\"line\":" + std::to_string(3 + 2 * i) + ",\"error\":\""));
    EXPECT_THAT(run.answers[i], HasSubstr(cases[i].second)) << cases[i].first;
  }
  EXPECT_EQ(run.answers.back(), R"({"call":"getOptOut","result":"opt_in"})");
}

TEST_F(ReplayTest, UndeliveredMessagesGoOutWithTheNextRun) {
  const std::string start = "{\"call\":\"startup\"}\n";
  const std::string one = start + R"({"call":"fireElement","elementId":"1"})" + "\n";
  writeSettings("VTMod", R"({"PostMessageUrl":"http://127.0.0.1:1/nobody/listens"})");
  EXPECT_EQ(replay(one, "--bundle BUNDLE --drain 0").status, 3);
  EXPECT_EQ(replay(one + "x", "--bundle BUNDLE --drain 0").status, 1);
  const Run idle = replay(R"({"call":"drain"})");  // nothing was started, and so nothing goes out
  EXPECT_EQ(idle.status, 3);
  EXPECT_EQ(idle.answers.at(0), R"({"call":"drain","result":false})");
  Collector collector;
  writeSettings("VTMod", collector.settings());
  EXPECT_EQ(replay(start, "--bundle BUNDLE --drain 20").status, 0);
  const auto received = collector.wait(2);
  EXPECT_EQ(received.at(0).key("cjuid"), received.at(1).key("cjuid"));
  EXPECT_NE(received.at(0).key("cjsid"), received.at(1).key("cjsid"));
  EXPECT_EQ(received.at(0).header("User-Agent").find("NQCore/"), 0U);
}

TEST_F(ReplayTest, UsageErrorsExecuteNothing) {
  writeSettings("VTMod", "{}");
  const std::string call = R"({"call":"getOptOut"})";
  for (const char* arguments :
       {"--bundle /nowhere", "--drain -1", "--drain x", "--drain nan", "--bogus", "--bundle",
        "--bundle BUNDLE /nowhere", "--bundle BUNDLE /", "SCRIPT extra"}) {
    const Run run = replay(call, arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_TRUE(run.answers.empty());
    EXPECT_NE(run.diagnostics, "");
  }
  for (const char* arguments : {"--bundle BUNDLE SCRIPT", "--bundle BUNDLE -"}) {
    EXPECT_EQ(replay(call, arguments).status, 0) << arguments;
  }
  std::ofstream(bundle() / "NQCore.bundle") << "no folder";
  EXPECT_EQ(replay(call).status, 2);
  std::filesystem::remove(bundle() / "NQCore.bundle");
  for (const char* module : {"VTMod", "NQCore"}) {
    for (const char* content : {"", "[]", "{\n\"a\":}"}) {
      writeSettings(module, content);
      const Run run = replay(call);
      EXPECT_EQ(run.status, 2) << content;
      EXPECT_TRUE(run.answers.empty());
      EXPECT_THAT(run.diagnostics, HasSubstr(std::string(module) + ".bundle/settings.json: "));
    }
    writeSettings(module, "{}");
  }
}

TEST_F(ReplayTest, TheDebugLogGoesToStandardErrorInWholeMessages) {
  const Run run = replay("{\"call\":\"startup\"}\n", "--bundle BUNDLE", "1");
  EXPECT_EQ(run.answers.size(), 1U);
  EXPECT_THAT(run.diagnostics, HasSubstr("\n~\nVantamo:\t{ +[Vantamo startup] } { "));
  EXPECT_THAT(run.diagnostics, HasSubstr(" } \n~~\nStarting Vantamo SDK Version: 1.1.28\n~~~\n\n"));
}

}  // namespace
}  // namespace vantamo::test
