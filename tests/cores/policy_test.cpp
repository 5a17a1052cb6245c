#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cores/default/core_settings.h"
#include "cores/default/retry_policy.h"
#include "cores/default/user_agent.h"

namespace vantamo::core {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

TEST(RetryPolicyTest, GrowsToItsCapWithFullJitter) {
  const RetryPolicy policy{milliseconds(1000), milliseconds(900000)};
  struct Case {
    unsigned failures;
    double uniform;
    int delay;
  };
  const std::vector<Case> cases = {
      {1, 1, 1000},    {2, 1, 2000},     {3, 0.5, 2000}, {10, 1, 512000},
      {11, 1, 900000}, {11, 0.1, 90000}, {5, 0, 0},      {4000000000U, 1, 900000},
      {0, 1, 1000},    {1, 7, 1000},     {1, -1, 0}};
  for (const Case& test : cases) {
    EXPECT_EQ(retryDelay(policy, test.failures, test.uniform).count(), test.delay)
        << test.failures << " failures";
  }
}

TEST(CoreSettingsTest, ValidItemsAreTaken) {
  const auto parsed = parseCoreSettings({{"ManualPostEnabled", 1},
                                         {"ApplicationId", "org.example.Shop-2_x"},
                                         {"UserAgent", "Shop/1"},
                                         {"RetryBaseSeconds", 0.25},
                                         {"RetryCapSeconds", 60},
                                         {"ConnectTimeoutSeconds", 2},
                                         {"RequestTimeoutSeconds", nullptr},
                                         {"Unknown", Value::List{}}});
  EXPECT_TRUE(parsed.complaints.empty());
  EXPECT_TRUE(parsed.settings.manualPost);
  EXPECT_EQ(parsed.settings.applicationId, "org.example.Shop-2_x");
  EXPECT_EQ(parsed.settings.userAgent, "Shop/1");
  EXPECT_EQ(parsed.settings.retry.base, milliseconds(250));
  EXPECT_EQ(parsed.settings.retry.cap, milliseconds(60000));
  EXPECT_EQ(parsed.settings.connectTimeout, milliseconds(2000));
  EXPECT_EQ(parsed.settings.requestTimeout, milliseconds(30000));
}

TEST(CoreSettingsTest, InvalidItemsAreNamedAndLeaveTheDefault) {
  const std::vector<std::pair<std::string, Value>> cases = {{"ManualPostEnabled", "YES"},
                                                            {"ApplicationId", "../up"},
                                                            {"ApplicationId", ".hidden"},
                                                            {"ApplicationId", ""},
                                                            {"ApplicationId", 5},
                                                            {"UserAgent", "a\r\nEvil: 1"},
                                                            {"UserAgent", "\u00e9"},
                                                            {"RetryBaseSeconds", 0},
                                                            {"RetryBaseSeconds", 3601},
                                                            {"RetryBaseSeconds", true},
                                                            {"RetryBaseSeconds", "1"},
                                                            {"RetryCapSeconds", 0.5},
                                                            {"RetryCapSeconds", 86401},
                                                            {"ConnectTimeoutSeconds", -1},
                                                            {"RequestTimeoutSeconds", 1e300}};
  const CoreSettings defaults;
  for (const auto& [key, value] : cases) {
    const auto parsed = parseCoreSettings({{key, value}});
    ASSERT_EQ(parsed.complaints.size(), 1U) << key;
    EXPECT_THAT(parsed.complaints.front(), HasSubstr("NQCore.bundle/settings.json: " + key + " "));
    EXPECT_FALSE(parsed.settings.manualPost || parsed.settings.applicationId ||
                 parsed.settings.userAgent);
    EXPECT_EQ(parsed.settings.retry.base, defaults.retry.base);
    EXPECT_EQ(parsed.settings.retry.cap, defaults.retry.cap);
    EXPECT_EQ(parsed.settings.requestTimeout, defaults.requestTimeout);
  }
  EXPECT_THAT(parseCoreSettings({{"RetryCapSeconds", 0}}).complaints.front(),
              HasSubstr("a number of seconds from 1 to 86400; the default of 900 holds"));
}

TEST(UserAgentTest, NamesCoreAndSystem) {
  EXPECT_THAT(defaultUserAgent(), testing::MatchesRegex("NQCore/[0-9.]+ \\(.+; .+\\)"));
}

}  // namespace
}  // namespace vantamo::core
