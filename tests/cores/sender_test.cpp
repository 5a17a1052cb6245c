#include "cores/default/sender.h"

#include <deque>

#include "tests/kit/host_test.h"

namespace vantamo::test {
namespace {

using core::HttpRequest;
using core::HttpResult;
using core::QueuedMessage;
using core::Sender;
using std::chrono::milliseconds;
using testing::ElementsAre;

// Answers with the scripted statuses, then with 204.
class ScriptedTransport final : public core::Transport {
 public:
  HttpResult post(const HttpRequest& request) override {
    bodies.push_back(request.body);
    if (const auto hook = std::exchange(whileSending, nullptr)) hook();
    if (script.empty()) return {204, {}};
    const int status = script.front();
    script.pop_front();
    return {status, status == 0 ? "no route" : ""};
  }
  void interrupt() noexcept override {}

  std::function<void()> whileSending;  // called once
  std::deque<int> script;
  std::vector<std::string> bodies;
};

// A queue that fails on demand.
class FragileQueue final : public core::MessageQueue {
 public:
  void append(std::string_view id, std::string_view module, std::string_view body) override {
    queue_->append(id, module, body);
  }
  std::optional<QueuedMessage> front() override {
    if (std::exchange(failsFront, false)) throw std::runtime_error("cannot read");
    return queue_->front();
  }
  void remove(std::int64_t sequence) override {
    if (std::exchange(failsRemove, false)) throw std::runtime_error("cannot write");
    queue_->remove(sequence);
  }
  std::size_t size() override { return queue_->size(); }
  std::int64_t newestSequence() override { return queue_->newestSequence(); }

  bool failsFront = false;
  bool failsRemove = false;

 private:
  std::unique_ptr<core::MessageQueue> queue_ = core::makeMemoryQueue();
};

class SenderTest : public HostTest {
 protected:
  SenderTest() {
    sender.setSending(true);
    sender.setRetryPolicy({milliseconds(1000), milliseconds(4000)});
  }

  void post(std::initializer_list<const char*> bodies) {
    for (const char* body : bodies) queue.append("id", "VTMod", body);
  }
  // Steps until the sender has nothing to do now; how long it then wants to wait, -1 for no limit.
  long long runOut() {
    for (;;) {
      const auto next = sender.step();
      if (!next) return -1;
      if (*next > now) return std::chrono::duration_cast<milliseconds>(*next - now).count();
    }
  }

  FragileQueue queue;
  ScriptedTransport transport;
  Sender::TimePoint now{std::chrono::hours(1)};
  bool hasEndpoint = true;
  Sender sender{{.queue = queue,
                 .transport = transport,
                 .requestFor =
                     [this](const QueuedMessage& message) {
                       return hasEndpoint ? std::optional(HttpRequest{"http://h", {}, message.body})
                                          : std::nullopt;
                     },
                 .now = [this] { return now; },
                 .random = [] { return 0.5; }}};
};

TEST_F(SenderTest, DeliversInOrderOfArrival) {
  EXPECT_EQ(runOut(), -1);
  post({"1", "2", "3"});
  EXPECT_EQ(runOut(), -1);
  EXPECT_THAT(transport.bodies, ElementsAre("1", "2", "3"));
  EXPECT_EQ(queue.size(), 0U);
}

TEST_F(SenderTest, KeepsEverythingElseAndBacksOff) {
  transport.script = {0, 500, 404, 301, 199, 429};
  post({"1", "2"});
  std::vector<long long> waits;
  for (int i = 0; i < 6; ++i) {
    waits.push_back(runOut());
    EXPECT_EQ(queue.size(), 2U);
    now += milliseconds(waits.back());
  }
  EXPECT_THAT(waits, ElementsAre(500, 1000, 2000, 2000, 2000, 2000));
  EXPECT_EQ(runOut(), -1);
  EXPECT_THAT(transport.bodies, ElementsAre("1", "1", "1", "1", "1", "1", "1", "2"));
  // A delivery ends the count of failures.
  transport.script = {503};
  post({"3"});
  EXPECT_EQ(runOut(), 500);
}

TEST_F(SenderTest, OnlyARetryNowEndsAWait) {
  transport.script = {503, 503};
  post({"1"});
  EXPECT_EQ(runOut(), 500);
  post({"2"});
  sender.flush();
  now += milliseconds(100);
  EXPECT_EQ(runOut(), 400);
  EXPECT_EQ(transport.bodies.size(), 1U);
  sender.retryNow();
  EXPECT_EQ(runOut(), 1000);
  EXPECT_EQ(transport.bodies.size(), 2U);
  // One that comes while an attempt is under way is for the next attempt.
  transport.script = {503, 503};
  transport.whileSending = [this] { sender.retryNow(); };
  now += milliseconds(1000);
  EXPECT_EQ(runOut(), 2000);
  EXPECT_EQ(transport.bodies.size(), 4U);
}

TEST_F(SenderTest, ManualModeSendsWhatAFlushHasSeen) {
  sender.setManual(true);
  post({"1", "2"});
  EXPECT_EQ(runOut(), -1);
  EXPECT_TRUE(transport.bodies.empty());
  sender.flush();
  post({"3"});
  transport.script = {204, 500};
  EXPECT_EQ(runOut(), 500);
  now += milliseconds(500);
  EXPECT_EQ(runOut(), -1);
  EXPECT_THAT(transport.bodies, ElementsAre("1", "2", "2"));
  sender.setManual(false);
  EXPECT_EQ(runOut(), -1);
  EXPECT_EQ(queue.size(), 0U);
}

TEST_F(SenderTest, NothingIsAttemptedWhileOffOrWithoutEndpoint) {
  post({"1"});
  sender.setSending(false);
  EXPECT_EQ(runOut(), -1);
  sender.setSending(true);
  hasEndpoint = false;
  EXPECT_EQ(runOut(), -1);
  EXPECT_TRUE(transport.bodies.empty());
  hasEndpoint = true;
  EXPECT_EQ(runOut(), -1);
  EXPECT_EQ(queue.size(), 0U);
}

TEST_F(SenderTest, AQueueThatFailsIsTriedAgainAndNothingGoesTwice) {
  post({"1", "2"});
  queue.failsFront = true;
  EXPECT_EQ(runOut(), 500);
  now += milliseconds(500);
  queue.failsRemove = true;
  EXPECT_EQ(runOut(), 1000);
  now += milliseconds(1000);
  EXPECT_EQ(runOut(), -1);
  EXPECT_THAT(transport.bodies, ElementsAre("1", "2"));
  EXPECT_THAT(logTexts(), testing::Contains(testing::HasSubstr("cannot write")));
}

}  // namespace
}  // namespace vantamo::test
