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
  const std::map<std::string, Value::List> cases = {
      {"ManualPostEnabled", {"YES"}},
      {"ApplicationId", {"../up", ".hidden", "", 5, std::string(101, 'x')}},
      {"UserAgent", {"a\r\nEvil: 1", "\u00e9", ""}},
      {"RetryBaseSeconds", {0, 3601, true, "1"}},
      {"RetryCapSeconds", {0.5, 86401}},
      {"ConnectTimeoutSeconds", {-1}},
      {"RequestTimeoutSeconds", {1e300}}};
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
    }
  }
  EXPECT_THAT(parseCoreSettings({{"RetryCapSeconds", 0}}).complaints.front(),
              HasSubstr("a number of seconds from 1 to 86400; the default of 900 holds"));
}

}  // namespace vantamo::core
