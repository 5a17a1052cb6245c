#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cores/default/core_settings.h"
#include "cores/default/retry_policy.h"

namespace vantamo::core {
using std::chrono::milliseconds;
using testing::HasSubstr;

TEST(RetryPolicyTest, GrowsToItsCapWithFullJitter) {
  const RetryPolicy policy{milliseconds(1000), milliseconds(900000)};
  const auto delay = [&](unsigned failures, double uniform) {
    return retryDelay(policy, failures, uniform).count();
  };
  std::vector<milliseconds::rep> longest;
  for (unsigned failures = 0; failures <= 12; ++failures) longest.push_back(delay(failures, 1));
  EXPECT_THAT(longest, testing::ElementsAre(1000, 1000, 2000, 4000, 8000, 16000, 32000, 64000,
                                            128000, 256000, 512000, 900000, 900000));
  EXPECT_EQ(delay(4000000000U, 1), 900000);
  EXPECT_EQ(delay(3, 0.5), 2000);
  EXPECT_EQ(delay(5, 0), 0);
  EXPECT_EQ(delay(1, 7), 1000);
  EXPECT_EQ(delay(1, -1), 0);
}

TEST(RetryPolicyTest, EveryStatusHasAVerdict) {
  const std::map<Verdict, std::vector<int>> verdicts = {
      {Verdict::delivered, {200, 204, 299}},
      {Verdict::networkFailed, {0, 100, 199, -1}},
      {Verdict::serverFailed, {300, 302, 399, 407, 408, 429, 500, 503, 599, 600, 1000}},
      {Verdict::endpointWrong, {401, 403, 404, 405}},
      {Verdict::messageWrong, {400, 402, 406, 410, 413, 422, 431, 499}}};
  for (const auto& [verdict, statuses] : verdicts) {
    for (const int status : statuses) EXPECT_EQ(judge(status), verdict) << status;
  }
}

TEST(RetryPolicyTest, RetryAfterIsSecondsOrADate) {
  constexpr long long day = 86400;
  struct Case {
    const char* retryAfter;
    const char* date;
    long long seconds;  // -1: no wait is asked for
  };
  const auto now = std::chrono::system_clock::from_time_t(784111777);  // 6 Nov 1994 08:49:37
  for (const Case& example :
       std::vector<Case>{{"120", nullptr, 120},
                         {" 0 ", nullptr, 0},
                         {"99999999999999999999999", nullptr, day},
                         {"Sun, 06 Nov 1994 08:50:37 GMT", nullptr, 60},
                         {"Sunday, 06-Nov-94 08:50:37 GMT", nullptr, 60},
                         {"Sun Nov  6 08:50:37 1994", nullptr, 60},
                         // Where times have 32 bits, there is no such date.
                         {"Fri, 01 Jan 2100 00:00:00 GMT", nullptr, sizeof(time_t) > 4 ? day : -1},
                         {"Sun, 06 Nov 1994 08:48:37 GMT", nullptr, -1},
                         // This machine's clock is years away; the server's counts.
                         {"Sun, 06 Nov 2033 08:50:37 GMT", "Sun, 06 Nov 2033 08:49:37 GMT", 60},
                         {"-5", nullptr, -1},
                         {"1e3", nullptr, -1},
                         {"soon", nullptr, -1},
                         {"", nullptr, -1}}) {
    default_core::HttpResponse response{503, {}, example.retryAfter, {}};
    if (example.date != nullptr) response.date = example.date;
    const auto wait = retryAfter(response, now);
    EXPECT_EQ(wait ? wait->count() : -1000, example.seconds * 1000) << example.retryAfter;
  }
  EXPECT_FALSE(retryAfter({503, {}, {}, {}}, now));
}

TEST(CoreSettingsTest, ValidItemsAreTaken) {
  const auto parsed = parseCoreSettings({{"ManualPostEnabled", 1},
                                         {"ApplicationId", "org.example.Shop-2_x"},
                                         {"UserAgent", "Shop/1"},
                                         {"RetryBaseSeconds", 0.25},
                                         {"RetryCapSeconds", 60},
                                         {"ConnectTimeoutSeconds", 2},
                                         {"RequestTimeoutSeconds", nullptr},
                                         {"MaxQueuedMessages", 7},
                                         {"MaxDeadLetters", 0},
                                         {"MaxConcurrentPosts", 32},
                                         {"Unknown", Value::List{}}});
  EXPECT_TRUE(parsed.complaints.empty());
  EXPECT_TRUE(parsed.settings.manualPost);
  EXPECT_EQ(parsed.settings.applicationId, "org.example.Shop-2_x");
  EXPECT_EQ(parsed.settings.userAgent, "Shop/1");
  EXPECT_EQ(parsed.settings.retry.base, milliseconds(250));
  EXPECT_EQ(parsed.settings.retry.cap, milliseconds(60000));
  EXPECT_EQ(parsed.settings.connectTimeout, milliseconds(2000));
  EXPECT_EQ(parsed.settings.requestTimeout, milliseconds(30000));
  EXPECT_EQ(parsed.settings.maxQueuedMessages, 7U);
  EXPECT_EQ(parsed.settings.maxQueueBytes, 20U * 1024 * 1024);
  EXPECT_EQ(parsed.settings.maxDeadLetters, 0U);
  EXPECT_EQ(parsed.settings.maxConcurrentPosts, 32U);
}

TEST(CoreSettingsTest, InvalidItemsAreNamedAndLeaveTheDefault) {
  const std::map<std::string, Value::List> cases = {
      {"ManualPostEnabled", {"YES"}},
      {"ApplicationId", {"../up", ".hidden", "", 5, std::string(101, 'x')}},
      {"UserAgent", {"a\r\nEvil: 1", "\u00e9", ""}},
      {"RetryBaseSeconds", {0, 3601, true, "1"}},
      {"RetryCapSeconds", {0.5, 86401}},
      {"ConnectTimeoutSeconds", {-1}},
      {"RequestTimeoutSeconds", {1e300}},
      {"MaxQueuedMessages", {0, 1.5, "9"}},
      {"MaxQueueBytes", {65535}},
      {"MaxDeadLetters", {-1}},
      {"MaxConcurrentPosts", {0, 33}}};
  const CoreSettings defaults;
  for (const auto& [key, values] : cases) {
    for (const Value& value : values) {
      const auto [settings, complaints] = parseCoreSettings({{key, value}});
      ASSERT_EQ(complaints.size(), 1U) << key;
      EXPECT_THAT(complaints[0], HasSubstr("NQCore.bundle/settings.json: " + key + " "));
      EXPECT_FALSE(settings.manualPost || settings.applicationId || settings.userAgent);
      EXPECT_EQ(settings.retry.base, defaults.retry.base);
      EXPECT_EQ(settings.retry.cap, defaults.retry.cap);
      EXPECT_EQ(settings.requestTimeout, defaults.requestTimeout);
      EXPECT_EQ(settings.maxQueuedMessages, defaults.maxQueuedMessages);
      EXPECT_EQ(settings.maxConcurrentPosts, defaults.maxConcurrentPosts);
    }
  }
  EXPECT_THAT(parseCoreSettings({{"RetryCapSeconds", 0}}).complaints.front(),
              HasSubstr("a number of seconds from 1 to 86400; the default of 900 holds"));
}

}  // namespace vantamo::core
