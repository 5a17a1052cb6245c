// What a host sees of the default core beyond the contract.

#include <thread>

#include "tests/kit/host_test.h"
#include "tools/local_endpoint.h"
#include "vantamo/default_core.h"
#include "vantamo/vantamo.h"

namespace vantamo::test {
namespace {

using namespace default_core;
using std::chrono::seconds;
using testing::ElementsAre;

// Answers with the status that the tag's element id is.
class ByElement final : public Transport {
 public:
  HttpResponse post(const HttpRequest& request) override {
    const std::string id = request.body.substr(request.body.find("\"eid\":\"") + 7);
    ++attempts;
    return {repaired ? 204 : std::stoi(id), {}, {}, {}};
  }
  void interrupt() noexcept override { ++interruptions; }

  std::atomic<bool> repaired{false};
  std::atomic<int> attempts{0};
  std::atomic<int> interruptions{0};
};

class HostInterfaceTest : public HostTest {
 protected:
  HostInterfaceTest() {
    writeSettings("VTMod", R"({"PostMessageUrl":"http://127.0.0.1:1/","CaptureAllOfflineTags":1})");
    writeSettings("NQCore", R"({"RetryBaseSeconds":0.01,"RetryCapSeconds":0.05})");
  }
  ~HostInterfaceTest() override { Vantamo::shutdown(); }

  static bool fire(const std::string& id) { return Vantamo::fireElement({.elementId = id}); }

  const std::shared_ptr<ByElement> transport = std::make_shared<ByElement>();
};

TEST_F(HostInterfaceTest, OptionsAreCheckedAndFixedByTheFirstUse) {
  for (const Options& wrong :
       {Options{.queueFolder = "relative"}, Options{.maxQueuedMessages = 0},
        Options{.maxQueueBytes = 65535}, Options{.maxDeadLetters = 100001}}) {
    EXPECT_FALSE(setOptions(wrong));
  }
  const std::string folder = (scratch() / "queue").string();
  EXPECT_TRUE(setOptions({.queueFolder = folder, .transport = transport}));
  ASSERT_TRUE(Vantamo::startup());
  EXPECT_FALSE(setOptions({}));
  EXPECT_TRUE(fire("204"));
  EXPECT_TRUE(flush(seconds(20)));
  EXPECT_EQ(transport->attempts, 1);
  EXPECT_TRUE(std::filesystem::exists(folder + "/0/queue.sqlite"));
}

TEST_F(HostInterfaceTest, FiguresReportsAndDeadLettersAgree) {
  const auto clock = std::chrono::system_clock::from_time_t(1'000'000);
  setOptions(
      {.transport = transport, .wallClock = [clock] { return clock; }, .maxQueuedMessages = 3});
  std::map<Outcome, int> outcomes;
  std::vector<std::string> deadIds;
  std::atomic<int> calls{0};
  setDeliveryCallback([&](const DeliveryReport& report) {
    ++outcomes[report.outcome];
    if (report.outcome == Outcome::dead) deadIds.push_back(report.id);
    // Calling back must neither lock up nor wait for itself, and what is thrown goes nowhere.
    EXPECT_EQ(flush(seconds(60)), stats().queuedMessages == 0);
    if (++calls <= 3) fire("204");
    throw std::runtime_error(report.moduleName);
  });
  ASSERT_TRUE(Vantamo::startup());
  EXPECT_TRUE(fire("422"));
  while (calls < 4) std::this_thread::yield();
  setDeliveryCallback(nullptr);
  EXPECT_TRUE(flush(seconds(20)));
  const auto letters = deadLetters();
  ASSERT_EQ(letters.size(), 1U);
  EXPECT_THAT(deadIds, ElementsAre(letters[0].id));
  EXPECT_EQ(letters[0].status, 422);
  EXPECT_EQ(letters[0].accepted, clock);
  EXPECT_EQ(letters[0].died, clock);
  EXPECT_EQ(outcomes[Outcome::delivered], 3);

  EXPECT_TRUE(fire("503"));
  EXPECT_TRUE(fire("204"));
  EXPECT_TRUE(fire("204"));
  EXPECT_FALSE(fire("204"));
  EXPECT_FALSE(flush(std::chrono::milliseconds(100)));
  const Stats full = stats();
  EXPECT_EQ(full.queuedMessages, 3U);
  EXPECT_EQ(full.refusedFull, 1U);
  EXPECT_EQ(full.refused, 1U);
  EXPECT_GT(full.retriedServer, 0U);
  EXPECT_EQ(full.lastStatus, 503);
  EXPECT_EQ(full.deadLetters, 1U);

  transport->repaired = true;
  EXPECT_EQ(replayDeadLetters(std::vector<std::string>{"another"}), 0U);
  EXPECT_EQ(replayDeadLetters(), 1U);
  EXPECT_TRUE(flush(seconds(20)));
  const Stats empty = stats();
  EXPECT_EQ(empty.accepted, empty.delivered);
  EXPECT_EQ(empty.deadLetters, 0U);
  EXPECT_EQ(empty.queuedBytes, 0U);
  EXPECT_EQ(purgeDeadLetters(), 0U);
  EXPECT_TRUE(empty.durable);
}

TEST_F(HostInterfaceTest, ErasingLeavesNothingOfTheUser) {
  setOptions({.transport = transport});
  ASSERT_TRUE(Vantamo::startup());
  Vantamo::setPRWAdvertisingId("ad");
  const std::string visitor = Vantamo::visitorId();
  EXPECT_TRUE(fire("400"));
  EXPECT_TRUE(flush(seconds(20)));
  EXPECT_TRUE(fire("500"));
  EXPECT_TRUE(eraseAll());
  EXPECT_EQ(stats().queuedMessages, 0U);
  EXPECT_TRUE(deadLetters().empty());
  EXPECT_FALSE(Vantamo::getPRWAdvertisingId());
  EXPECT_NE(Vantamo::visitorId(), visitor);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(caches())) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path());
    const std::string content((std::istreambuf_iterator<char>(file)), {});
    EXPECT_EQ(content.find(visitor), std::string::npos) << entry.path();
  }
  EXPECT_TRUE(fire("204"));
  EXPECT_TRUE(flush(seconds(20)));
}

TEST_F(HostInterfaceTest, WhatIsTooLargeIsCountedAndStandsInNobodysWay) {
  setOptions({.transport = transport});
  ASSERT_TRUE(Vantamo::startup());
  fire(std::string(2'000'000, '4'));
  EXPECT_EQ(stats().refusedTooLarge, 1U);
  EXPECT_TRUE(fire("204"));
  EXPECT_TRUE(flush(seconds(20)));
  EXPECT_EQ(transport->attempts, 1);
  Vantamo::shutdown();
  EXPECT_EQ(stats().delivered, 1U);
}

}  // namespace
}  // namespace vantamo::test
