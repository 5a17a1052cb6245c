// Runs `vantamo collect` and posts to it.

#include <sys/resource.h>

#include "support/json.h"
#include "tests/kit/host_test.h"
#include "tests/tools/inspector.h"

namespace vantamo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

std::string page(const std::string& id) {
  return R"({"tid":"1","pi":")" + id +
         R"(","cg":"","se":"","sr":"","ul":"APP_APPLE_A","vn2":"e4.0","st":"1700000000",)"
         R"("vn1":"4.1.8","ec":"UTF-8","cjen":"1","cjuid":"1","cjsid":"1234567890","cjvf":"1"})";
}

class CollectTest : public HostTest {
 protected:
  std::string plan(const std::string& lines) const {
    const std::string path = scratch().string() + "/plan.jsonl";
    std::ofstream(path) << lines;
    return path;
  }
};

// A script fires every event; the replay lines of what arrives make the same tags again.
TEST_F(CollectTest, AReplayLineMakesTheTagAgain) {
  const std::string script =
      R"({"call":"startup"}
{"call":"firePageView","pageId":"a\"<b>","attributes":["x","y"],"vqmmc":["mail","week 1"]}
{"call":"firePageView","pageId":"p","category":"c","searchTerm":"t","searchResult":"1"}
{"call":"fireProductview","pageId":"p","productId":"i","productName":"n","attributes":["x"]}
{"call":"fireShopAction5","productId":"i","productName":"n","quantity":"1","baseUnitPrice":"2","currencyCode":"EUR","attributes":[]}
{"call":"fireShopAction9","productId":"i","productName":"n","quantity":"1","baseUnitPrice":"2","orderId":"o","orderSubTotal":"3","customerId":"c","currencyCode":"EUR","attributes":["x"]}
{"call":"fireOrder","orderId":"o","subtotal":"3","shippingCharge":"4","customerId":"c","currencyCode":"EUR"}
{"call":"fireRegistration","customerId":"c","customerCountry":"GB","attributes":["x","y"]}
{"call":"fireElement","elementId":"e"}
{"call":"fireConversionEvent","eventId":"e","actionType":"2"}
{"call":"fireLinkClick","linkName":"n","link":"l"}
{"call":"fireImpression","pageId":"p","vqsp":["x","y"]}
)";
  const Inspector inspector("");
  writeSettings("VTMod", R"({"AppName":"A","PostMessageUrl":"http://127.0.0.1:)" +
                             std::to_string(inspector.port) + R"(/collect"})");
  std::string lines = script;
  for (int round = 0; round < 2; ++round) {
    std::ofstream(scratch() / "script.jsonl") << lines;
    ASSERT_EQ(std::system(("VANTAMO_DEBUG=0 XDG_CACHE_HOME=" + caches().string() +
                           " " VANTAMO_PROGRAM " replay --drain 20 --bundle " + bundle().string() +
                           " " + (scratch() / "script.jsonl").string() + " > /dev/null")
                              .c_str()),
              0);
    lines = "{\"call\":\"startup\"}\n";
    std::istringstream tags(inspector.get("/tags"));
    for (std::string line; std::getline(tags, line);) {
      const Value tag = support::parseJson(line);
      EXPECT_TRUE(tag.map().find("problems")->list().empty()) << line;
      lines += std::string(*tag.map().stringAt("replay")) + "\n";
    }
    EXPECT_EQ(lines, script);
    EXPECT_EQ(inspector.control("/reset", "{}"), 200);
  }
}

TEST_F(CollectTest, TagsAreFilteredAndWhatIsWrongIsKept) {
  const Inspector inspector("");
  EXPECT_EQ(inspector.post(page("a")), 204);
  EXPECT_EQ(inspector.post(page("b")), 204);
  EXPECT_EQ(inspector.post("{\"\xFF"), 204);
  EXPECT_EQ(inspector.post("{\"a\":\"" + std::string(1 << 20, 'x') + "\"}"), 413);
  EXPECT_THAT(inspector.get("/tags?pi=b"), testing::StartsWith("{\"sequence\":2,"));
  EXPECT_THAT(inspector.get("/tags?since=2"),
              AllOf(HasSubstr("the body is not JSON"), HasSubstr("larger than 1 MiB")));
  EXPECT_EQ(inspector.get("/tags?event=fireOrder"), "");
  EXPECT_EQ(inspector.get("/tags?event=order"), "no event \"order\"\n");
  EXPECT_EQ(inspector.get("/tags?since=x"), "since must be a sequence number, not \"x\"\n");
  std::string filters = "/tags?a=1";
  for (int i = 0; i < 32; ++i) filters += "&a=1";
  EXPECT_EQ(inspector.get(filters), "more than 32 filters\n");
  EXPECT_EQ(inspector.control("/reset", "{}", {{"Origin", "http://evil.example"}}), 403);
  EXPECT_EQ(inspector.post(page("c"), {{"Origin", "http://evil.example"}}), 403);
  EXPECT_EQ(inspector.control("/faults", R"({"fail":"200:1%"})"), 400);
  EXPECT_THAT(inspector.get("/health"), HasSubstr("\"tags\":4"));
  EXPECT_EQ(inspector.client().Get("/tags", {{"Host", "evil.example"}})->status, 403);
  EXPECT_EQ(inspector.control("/reset", "{}"), 200);
  EXPECT_EQ(inspector.get("/tags"), "");
}

TEST_F(CollectTest, APageThatComesBackMissesNothing) {
  const Inspector inspector("");
  const auto events = [&](const std::string& lastId, std::size_t until) {
    std::string text;
    httplib::Headers headers;
    if (!lastId.empty()) headers.emplace("Last-Event-ID", lastId);
    inspector.client().Get("/events", headers, [&](const char* data, std::size_t size) {
      text.append(data, size);
      std::size_t count = 0;
      for (std::size_t at = text.find("data: "); at != std::string::npos;
           at = text.find("data: ", at + 1)) {
        ++count;
      }
      return count < until;
    });
    return text;
  };
  EXPECT_EQ(inspector.post(page("first")), 204);
  const std::string seen = events("", 2);
  const std::size_t id = seen.find("id: ") + 4;
  const std::string lastId = seen.substr(id, seen.find('\n', id) - id);
  EXPECT_EQ(inspector.post(page("second")), 204);
  EXPECT_THAT(events(lastId, 2), AllOf(testing::Not(HasSubstr("first")), HasSubstr("second")));
  EXPECT_THAT(events("of another run-1", 4), AllOf(HasSubstr("event: reset"), HasSubstr("first")));
}

TEST_F(CollectTest, ScriptsLearnWhetherThePlanWasKept) {
  struct Case {
    std::string options;
    std::string plan;
    std::vector<std::string> posts;
    int status;
    testing::Matcher<std::string> output;
  };
  const std::vector<Case> cases = {
      {"",
       R"({"event":"firePageView","pi":"b","pv_a1":null})"
       "\n# a remark\n\n"
       R"({"call":"firePageView","pageId":"a","category":""})",
       {"a", "b"},
       0,
       HasSubstr("2 of 2 expected tags arrived\n")},
      // The first tag fits both lines: it must leave the one that the second tag needs.
      {"", "{\"tid\":\"1\"}\n{\"pi\":\"a\"}", {"a", "b"}, 0, HasSubstr("2 of 2")},
      {"--until 2 --in-order",
       "{\"pi\":\"b\"}\n{\"pi\":\"a\"}",
       {"a", "b"},
       1,
       AllOf(HasSubstr(":2: no tag for pi=\"a\"\n  nearest: #1 firePageView pageId=\"a\"\n    it "
                       "came out of order"),
             HasSubstr("1 of 2"))},
      {"--until 1",
       R"({"event":"firePageView","pi":"c","cg":null})",
       {"a"},
       1,
       AllOf(HasSubstr("pi: expected \"c\", was \"a\"\n    cg: expected absent, was \"\"\n"),
             HasSubstr("not expected: #1 firePageView pageId=\"a\"\n"))},
      {"--exact --until 2", R"({"pi":"a"})", {"a", "a"}, 1, HasSubstr("not expected: #2")},
      {"--strict --until 1", R"({"pi":""})", {""}, 1, HasSubstr("1 of 1 tags with problems\n")},
      {"--until 3 --timeout 60", R"({"pi":"a"})", {"a"}, 0, HasSubstr("1 of 1")},
      {"--timeout 0", R"({"pi":"a"})", {}, 1, HasSubstr("0 of 1 expected tags arrived\n")}};
  for (const Case& row : cases) {
    Inspector inspector("--quiet " + row.options + " --expect " + plan(row.plan));
    for (const std::string& id : row.posts) EXPECT_EQ(inspector.post(page(id)), 204);
    EXPECT_THAT(inspector.rest(), row.output) << row.options;
    EXPECT_EQ(inspector.end(), row.status) << row.options;
  }
}

TEST_F(CollectTest, AnInspectorThatStaysJudgesWhenItIsTold) {
  for (const auto& [id, status] : {std::pair("a", 0), {"b", 1}}) {
    Inspector inspector("--quiet --stay --expect " + plan(R"({"pi":"a"})"));
    EXPECT_EQ(inspector.post(page(id)), 204);
    EXPECT_EQ(inspector.post(page("more")), 204);
    inspector.stop();
    EXPECT_EQ(inspector.end(), status);
  }
}

// What was answered has been judged: nothing is taken after the verdict.
TEST_F(CollectTest, NoTagIsAnsweredAfterTheVerdict) {
  for (int i = 0; i < 30; ++i) {
    Inspector inspector("--quiet --strict --until 1");
    httplib::Client client = inspector.client();
    client.set_keep_alive(true);
    ASSERT_TRUE(client.Post("/collect", page("a"), "application/json"));
    const auto faulty = client.Post("/collect", "{}", "application/json");
    EXPECT_EQ(inspector.end(), faulty ? 1 : 0);
  }
}

TEST_F(CollectTest, NobodyHasToReadItsOutput) {
  Inspector inspector("");
  httplib::Client client = inspector.client();
  client.set_keep_alive(true);
  for (int i = 0; i < 3000; ++i) {
    ASSERT_TRUE(client.Post("/collect", page(std::string(50, 'x')), "application/json")) << i;
  }
  inspector.stop();
  EXPECT_THAT(inspector.rest(), testing::ContainsRegex("[0-9]+ lines were left out"));
}

TEST_F(CollectTest, WhatCannotBeAskedForIsNamed) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"--fail 503:120%", "503:120%"},
      {"--slow soon", "soon"},
      {"--retry-after -1", "-1"},
      {"--until 0", "--until"},
      {"--exact", "--expect"},
      {"--listen somewhere", "somewhere is no IP address"},
      {"--listen 203.0.113.1", "cannot listen on 203.0.113.1, port 0: "},
      {"--expect /nowhere", "/nowhere: cannot be read"},
      {"--timeout nan", "SECONDS must be a number from 0 to 1000000, not nan"},
      {"--expect " + scratch().string(), "cannot be read"}};
  for (const auto& [options, text] : cases) {
    const std::string output = scratch().string() + "/output";
    const int status = std::system(
        (VANTAMO_PROGRAM " collect --port 0 " + options + " > " + output + " 2>&1").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 2) << options;
    std::ifstream file(output);
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(file), {}), HasSubstr(text));
  }
}

TEST_F(CollectTest, ARetryAfterAFaultIsOneTag) {
  Inspector inspector("--fail 503:100% --retry-after 7 --until 2 --timeout 60");
  const httplib::Headers key = {{"Idempotency-Key", "k"}};
  const auto refused = inspector.client().Post("/collect", key, page("a"), "application/json");
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 503);
  EXPECT_EQ(refused->get_header_value("Retry-After"), "7");
  EXPECT_EQ(inspector.control("/faults", R"({"fail":null,"refuse":true})"), 200);
  EXPECT_EQ(inspector.post(page("a"), key), -1);
  EXPECT_THAT(inspector.get("/health"), HasSubstr("\"ok\""));  // the page stays reachable
  EXPECT_EQ(inspector.control("/faults", R"({"refuse":false,"slow":"50ms"})"), 200);
  EXPECT_EQ(inspector.post(page("a"), key), 204);
  EXPECT_EQ(inspector.post(page("a"), key), 204);  // again: not counted
  EXPECT_EQ(inspector.post(page("b")), 204);
  EXPECT_THAT(inspector.rest(), AllOf(HasSubstr("(not counted: not answered with 2xx)"),
                                      HasSubstr("(again: #1)"), HasSubstr("#5 ")));
  EXPECT_EQ(inspector.end(), 0);
}

TEST_F(CollectTest, PostsThatAreStillComingInAtItsEndDoNoHarm) {
  Inspector inspector("--quiet --slow 300ms --until 1");
  const std::string body = page("a");
  std::string posts;
  for (int i = 0; i < 20; ++i) {
    posts +=
        "POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + std::to_string(body.size()) +
        "\r\n\r\n" + body;
  }
  const int socket = inspector.connection();
  ASSERT_EQ(::send(socket, posts.data(), posts.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(posts.size()));
  EXPECT_EQ(inspector.end(), 0);
  ::close(socket);
}

TEST_F(CollectTest, ThousandsOfIdleConnectionsKeepNobodyOut) {
  constexpr int wanted = 2000;
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = limit.rlim_max;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_max < wanted + 200) GTEST_SKIP() << "this user may not have enough descriptors";
  const Inspector inspector("");
  std::vector<int> sockets;
  for (int i = 0; i < wanted; ++i) {
    sockets.push_back(inspector.connection());
    // Half of them begin a request that never ends.
    const std::string_view begun = i % 2 == 0 ? "POST / HT" : "";
    ASSERT_EQ(::send(sockets.back(), begun.data(), begun.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(begun.size()));
  }
  EXPECT_EQ(inspector.post(page("a")), 204);
  EXPECT_THAT(inspector.get("/health"), HasSubstr("\"tags\":1"));
  for (const int socket : sockets) ::close(socket);
}

}  // namespace
}  // namespace vantamo::test
