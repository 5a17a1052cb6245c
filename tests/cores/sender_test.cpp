#include "cores/default/sender.h"

#include <algorithm>
#include <deque>
#include <map>

#include "cores/default/exchange.h"
#include "tests/kit/host_test.h"

namespace vantamo::test {
namespace {

using core::QueuedMessage;
using core::Sender;
using default_core::HttpRequest;
using default_core::HttpResponse;
using default_core::Outcome;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

// Answers with the scripted responses, then with 204.
class ScriptedTransport final : public default_core::Transport {
 public:
  HttpResponse post(const HttpRequest& request) override {
    bodies.push_back(request.body);
    if (const auto hook = std::exchange(whileSending, nullptr)) hook();
    if (script.empty()) return {204, {}, {}, {}};
    HttpResponse response = script.front();
    script.pop_front();
    if (response.status == -1) throw 7;
    return response;
  }
  void interrupt() noexcept override {}
  void answer(std::initializer_list<int> statuses) {
    for (const int status : statuses) script.push_back({status, {}, {}, {}});
  }

  std::function<void()> whileSending;  // called once
  std::deque<HttpResponse> script;
  std::vector<std::string> bodies;
};

// Has as many requests under way as it may, and answers the newest first: with what the script says
// for the body, once, and then with 204.
class HastyTransport final : public core::ParallelTransport {
 public:
  HttpResponse post(const HttpRequest& /*request*/) override { return {}; }
  void interrupt() noexcept override {}
  void exchange(core::RequestSource& source, std::size_t most) override {
    std::vector<core::RequestSource::Request> underWay;
    for (;;) {
      while (underWay.size() < most) {
        auto request = source.next();
        if (!request) break;
        bodies.push_back(request->content.body);
        underWay.push_back(*std::move(request));
      }
      if (underWay.empty()) return;
      widest = std::max(widest, underWay.size());
      const auto newest = std::move(underWay.back());
      underWay.pop_back();
      const auto scripted = script.extract(newest.content.body);
      const int status = scripted.empty() ? 204 : scripted.mapped();
      source.answered(newest.number, {status, {}, {}, {}});
    }
  }

  std::map<std::string, int> script;
  std::vector<std::string> bodies;
  std::size_t widest = 0;
};

class SenderTest : public HostTest {
 protected:
  SenderTest() {
    sender.setSending(true);
    sender.setRetryPolicy({milliseconds(1000), milliseconds(4000)});
  }

  void post(std::initializer_list<const char*> bodies) {
    for (const char* body : bodies) {
      queue->append({platform::randomUuid(), "VTMod", body, 0});
    }
  }
  // Steps until the sender has nothing to do now; how long it then wants to wait, -1 for no limit.
  long long runOut() { return runOut(transport); }
  long long runOut(default_core::Transport& by) {
    for (;;) {
      std::vector<default_core::DeliveryReport> reports;
      const Sender::Step step = sender.step(*queue, by, &reports);
      for (const auto& report : reports) outcomes.push_back(report.outcome);
      if (!step.next) return -1;
      if (*step.next > now) {
        return std::chrono::duration_cast<milliseconds>(*step.next - now).count();
      }
    }
  }
  [[nodiscard]] bool isEmpty() const { return queue->front() == nullptr; }

  std::unique_ptr<core::MessageQueue> queue = core::makeMemoryQueue();
  ScriptedTransport transport;
  std::vector<Outcome> outcomes;
  Sender::TimePoint now{hours(1)};
  std::chrono::system_clock::time_point wallNow{hours(400'000)};
  bool hasEndpoint = true;
  Sender sender{{.requestFor =
                     [this](const QueuedMessage& message) {
                       return hasEndpoint ? std::optional(HttpRequest{"http://h", {}, message.body})
                                          : std::nullopt;
                     },
                 .now = [this] { return now; },
                 .wallClock = [this] { return wallNow; },
                 .random = [] { return 0.5; }}};
};

TEST_F(SenderTest, DeliversInOrderOfArrival) {
  EXPECT_EQ(runOut(), -1);
  post({"1", "2", "3"});
  EXPECT_EQ(runOut(), -1);
  EXPECT_THAT(transport.bodies, ElementsAre("1", "2", "3"));
  EXPECT_TRUE(isEmpty());
}

TEST_F(SenderTest, WhatMayHealIsKeptAndBackedOffFrom) {
  transport.answer({0, 500, -1, 301, 199, 429});
  post({"1", "2"});
  std::vector<long long> waits;
  for (int i = 0; i < 6; ++i) {
    waits.push_back(runOut());
    now += milliseconds(waits.back());
    wallNow += hours(i % 2 == 0 ? -90'000 : 90'000);  // of no concern to any wait
  }
  EXPECT_THAT(waits, ElementsAre(500, 1000, 2000, 2000, 2000, 2000));
  EXPECT_EQ(runOut(), -1);
  EXPECT_THAT(transport.bodies, ElementsAre("1", "1", "1", "1", "1", "1", "1", "2"));
  // A delivery ends the count of failures.
  transport.answer({503});
  post({"3"});
  EXPECT_EQ(runOut(), 500);
}

TEST_F(SenderTest, AMessageThatIsRefusedGoesAsideAndAnEndpointThatIsWrongStopsAll) {
  transport.answer({400, 204, 403, 204});
  post({"1", "2", "3"});
  EXPECT_EQ(runOut(), 3000);  // half of the cap, and a random part of the other half
  EXPECT_THAT(transport.bodies, ElementsAre("1", "2", "3"));
  EXPECT_THAT(outcomes, ElementsAre(Outcome::dead, Outcome::delivered, Outcome::retrying));
  EXPECT_EQ(queue->deadLetters().at(0).status, 400);
  sender.retryNow();
  EXPECT_EQ(runOut(), -1);
  EXPECT_TRUE(isEmpty());
}

TEST_F(SenderTest, AServerIsGivenTheTimeItAsksFor) {
  transport.script = {{503, {}, "60", {}}, {503, {}, "0", {}}};
  post({"1"});
  EXPECT_EQ(runOut(), 60000);
  sender.retryNow();
  sender.networkRecovered();
  EXPECT_EQ(runOut(), 60000);
  now += seconds(60);
  EXPECT_EQ(runOut(), 1000);
}

TEST_F(SenderTest, WhatEndsAWait) {
  transport.answer({0, 0});
  post({"1"});
  EXPECT_EQ(runOut(), 500);
  post({"2"});
  sender.flush(queue->newestOrdinal());
  now += milliseconds(100);
  EXPECT_EQ(runOut(), 400);
  EXPECT_EQ(transport.bodies.size(), 1U);
  sender.retryNow();
  EXPECT_EQ(runOut(), 1000);
  EXPECT_EQ(transport.bodies.size(), 2U);
  // One that comes while an attempt is under way is for the next attempt.
  transport.answer({503, 503});
  transport.whileSending = [this] { sender.retryNow(); };
  now += milliseconds(1000);
  EXPECT_EQ(runOut(), 2000);
  EXPECT_EQ(transport.bodies.size(), 4U);
  // The network's return ends what was the network's fault, once and not at once.
  sender.networkRecovered();
  EXPECT_EQ(runOut(), 2000);
  transport.answer({0, 0, 0});
  now += milliseconds(2000);
  EXPECT_EQ(runOut(), 2000);
  sender.networkRecovered();
  EXPECT_EQ(runOut(), 500);
  now += milliseconds(500);
  EXPECT_EQ(runOut(), 2000);
  transport.whileSending = [this] { sender.networkRecovered(); };
  now += milliseconds(2000);
  EXPECT_EQ(runOut(), 500);
}

TEST_F(SenderTest, ManualModeSendsWhatAFlushHasSeen) {
  sender.setManual(true);
  post({"1", "2"});
  EXPECT_EQ(runOut(), -1);
  EXPECT_TRUE(transport.bodies.empty());
  sender.flush(queue->newestOrdinal());
  post({"3"});
  transport.answer({204, 500});
  EXPECT_EQ(runOut(), 500);
  now += milliseconds(500);
  EXPECT_EQ(runOut(), -1);
  EXPECT_THAT(transport.bodies, ElementsAre("1", "2", "2"));
  sender.setManual(false);
  EXPECT_EQ(runOut(), -1);
  EXPECT_TRUE(isEmpty());
}

TEST_F(SenderTest, SeveralAtATimeLoseAndRepeatNothing) {
  HastyTransport hasty;
  hasty.script = {{"2", 503}, {"4", 400}};
  sender.setConcurrentPosts(3);
  post({"1", "2", "3", "4", "5", "6", "7"});
  EXPECT_EQ(runOut(hasty), 500);
  EXPECT_EQ(hasty.widest, 3U);
  // What is under way when an attempt fails is waited for; nothing else is begun.
  const std::vector<std::string> begun = hasty.bodies;
  EXPECT_EQ(queue->front()->body, "2");
  now += milliseconds(500);
  EXPECT_EQ(runOut(hasty), -1);
  EXPECT_TRUE(isEmpty());
  EXPECT_EQ(hasty.bodies.size(), 8U);
  EXPECT_EQ(std::ranges::count(hasty.bodies, "2"), 2);
  EXPECT_EQ(queue->deadLetters().at(0).body, "4");
  EXPECT_EQ(std::ranges::count(outcomes, Outcome::delivered), 6);
}

TEST_F(SenderTest, NothingIsAttemptedWhileOffOrWithoutEndpoint) {
  post({"1"});
  sender.setSending(false);
  EXPECT_EQ(runOut(), -1);
  sender.beginHostFlush();
  hasEndpoint = false;
  EXPECT_EQ(runOut(), -1);
  EXPECT_TRUE(transport.bodies.empty());
  hasEndpoint = true;
  EXPECT_EQ(runOut(), -1);
  EXPECT_TRUE(isEmpty());
}

}  // namespace
}  // namespace vantamo::test
