#include <future>

#include "cores/default/curl_transport.h"
#include "cores/default/request_builder.h"
#include "tests/kit/host_test.h"
#include "tools/local_endpoint.h"
#include "vantamo/module_directory.h"
#include "vantamo/nq_core.h"

namespace vantamo::test {

using Collector = tools::LocalEndpoint;
namespace {

using core::CurlTransport;
using default_core::HttpResponse;
using testing::ElementsAre;
using testing::HasSubstr;
using Headers = std::vector<std::pair<std::string, std::string>>;

class CurlTransportTest : public testing::Test {
 protected:
  const std::shared_ptr<core::CurlOptions> options = std::make_shared<core::CurlOptions>();
};

TEST_F(CurlTransportTest, PostsTheBodyAsItIsOverOneConnection) {
  options->proxies.http = "http://127.0.0.1:1";  // of no concern to this machine itself
  Collector collector;
  CurlTransport transport(options);
  const std::string body("{\"a\":\"\0\u00e9\"}", 11);
  for (int i = 0; i < 2; ++i) {
    const HttpResponse result = transport.post({collector.url(), {{"X-A", "1"}}, body});
    EXPECT_EQ(result.status, 204) << result.error;
  }
  const auto received = collector.wait(2);
  EXPECT_EQ(received.at(1).body, body);
  EXPECT_EQ(received.at(1).header("X-A"), "1");
  EXPECT_EQ(received.at(1).header("Expect"), "-");
  EXPECT_EQ(received.at(0).header("REMOTE_PORT"), received.at(1).header("REMOTE_PORT"));
}

TEST_F(CurlTransportTest, OnlyTwoHundredsAreDelivered) {
  const std::vector<int> statuses = {200, 201, 299, 302, 400, 404, 429, 500, 503};
  Collector collector([&](std::size_t number) { return statuses.at(number); });
  CurlTransport transport(options);
  for (const int status : statuses) {
    const HttpResponse result = transport.post({collector.url(), {}, "{}"});
    EXPECT_EQ(result.status, status);  // a redirect is an answer, not a place to go to
  }
}

TEST_F(CurlTransportTest, WhatCannotBeSentIsAnError) {
  CurlTransport transport(options);
  options->connectTimeout = options->requestTimeout = std::chrono::seconds(2);
  for (const std::string url :
       {"http://127.0.0.1:1/x", "file:///etc/passwd", "ftp://127.0.0.1/x", "gopher://127.0.0.1/",
        "nonsense", "", "http://", "http://exa mple/", "http://127.0.0.1:99999/"}) {
    const HttpResponse result = transport.post({url, {}, "{}"});
    EXPECT_EQ(result.status, 0) << url;
    EXPECT_NE(result.error, "") << url;
  }
}

TEST_F(CurlTransportTest, ASilentServerCostsTheTimeLimitAndNoMore) {
  std::promise<void> end;
  const auto ended = end.get_future().share();
  Collector collector([ended](std::size_t) {
    ended.wait();
    return 204;
  });
  CurlTransport transport(options);
  options->connectTimeout = options->requestTimeout = std::chrono::milliseconds(100);
  EXPECT_EQ(transport.post({collector.url(), {}, "{}"}).status, 0);

  options->connectTimeout = options->requestTimeout = std::chrono::hours(1);
  std::thread host([&] {
    static_cast<void>(collector.wait(2));
    transport.interrupt();
  });
  EXPECT_EQ(transport.post({collector.url(), {}, "{}"}).status, 0);
  host.join();
  end.set_value();
  EXPECT_EQ(transport.post({collector.url(), {}, "{}"}).status, 204);
}

// A module whose headers are of every sort.
class HeaderModule final : public NQLifecycleObject {
 public:
  bool enable() override { return true; }
  bool disable() override { return true; }
  [[nodiscard]] bool isEnabled() const override { return true; }
  std::optional<std::string> settingsBundlePath() override { return {}; }
  [[nodiscard]] bool respondsTo(NQOptionalOperation operation) const override {
    return operation == NQOptionalOperation::addCookiesToRequest || offersHeaders;
  }
  Value::Map httpHeadersForSessionId(Text sessionId, Text json) override {
    EXPECT_FALSE(sessionId.present());
    if (json.view() == "throw") throw 7;
    return {{"X-Body", json.view()},
            {"X-Bad", "a\r\nEvil: 1"},
            {"X Bad", "1"},
            {"", "1"},
            {"X-Number", 1}};
  }
  void addCookiesToRequest(NQRequest& request) override {
    request.headers.set("Cookie", "of=" + request.url);
  }

  bool offersHeaders = true;
};

HeaderModule& headerModule() {
  static HeaderModule module;
  return module;
}

core::QueuedMessage queued(const std::string& body) { return {{"id", "M", body, 0, 0, 0}, 1}; }

TEST_F(HostTest, RequestsCarryWhatIsUsableOfTheModulesHeaders) {
  registerModuleClass("M", []() -> NQLifecycleObject& { return headerModule(); });
  core::SettingsStore settings;
  core::RequestBuilder builder(settings);
  EXPECT_FALSE(builder.requestFor(queued("body")));
  writeSettings("M", R"({"PostMessageUrl":7})");
  settings.load("M", (bundle() / "M.bundle").string());
  EXPECT_FALSE(builder.requestFor(queued("body")));

  writeSettings("M", R"({"PostMessageUrl":"http://h"})");
  settings.load("M", (bundle() / "M.bundle").string());
  builder.setUserAgent("Agent");
  const Headers own = {
      {"Content-Type", "application/json"}, {"Idempotency-Key", "id"}, {"User-Agent", "Agent"}};
  const auto headersOf = [&](const std::string& body) {
    Headers headers = builder.requestFor(queued(body))->headers;
    EXPECT_EQ(Headers(headers.begin(), headers.begin() + 3), own);
    headers.erase(headers.begin(), headers.begin() + 3);
    return headers;
  };
  using Header = std::pair<std::string, std::string>;
  EXPECT_THAT(headersOf("b"), ElementsAre(Header("X-Body", "b"), Header("Cookie", "of=http://h")));
  headerModule().offersHeaders = false;
  EXPECT_THAT(headersOf("b"), ElementsAre(Header("Cookie", "of=http://h")));
  headerModule().offersHeaders = true;
  EXPECT_TRUE(headersOf("throw").empty());
  EXPECT_THAT(logTexts(), testing::Contains("The module's headers could not be had"));
}

}  // namespace
}  // namespace vantamo::test
