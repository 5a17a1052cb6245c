// What the core took arrives, whatever becomes of process and network.

#include <random>

#include "tests/reliability/reliability_test.h"

namespace vantamo::test {
namespace {

using namespace std::string_literals;

TEST_F(ReliabilityTest, NothingAcceptedIsLostWhenTheProcessIsKilled) {
  Endpoint endpoint;
  configure(endpoint.url());
  std::mt19937 random(std::random_device{}());
  const int kills = loops(15, 200);
  for (int i = 0; i < kills; ++i) {
    const auto host = start(text("--prefix k", i, ". --threads 2 --count 1000000 --pace 1000"));
    if (i % 4 != 0) host->waitFor("started");  // the others may be killed while they start
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 80000));
    host->signal(SIGKILL);
    EXPECT_EQ(WTERMSIG(host->wait().status), SIGKILL);
  }
  const int ends = loops(10, 100);
  for (int i = 0; i < ends; ++i) {
    run(text("--prefix last", i, ". --count 3 --end kill"));
  }
  drain();
  const Tally tally = this->tally(endpoint);
  EXPECT_LE(tally.duplicates, static_cast<std::size_t>(kills + ends));
  figure("An accepted event is delivered at least once, whenever the process is killed",
         text(kills, " SIGKILLs at random moments, ", ends,
              " right after a call has returned, then one run that delivers"),
         text(tally));
  figure("What is sent again carries the same Idempotency-Key and the same body",
         "the same runs, as the endpoint has seen them",
         text(tally.differing, " of ", tally.duplicates, " differ"));
}

TEST_F(ReliabilityTest, NothingIsLostWhenSeveralRequestsAreUnderWay) {
  constexpr int atATime = 8;
  Endpoint endpoint([](std::size_t) {
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    return 204;
  });
  configure(endpoint.url(), text(R"(,"MaxConcurrentPosts":)", atATime));
  std::mt19937 random(std::random_device{}());
  const int kills = loops(8, 100);
  for (int i = 0; i < kills; ++i) {
    const auto host = start(text("--prefix c", i, ". --threads 2 --count 1000000 --pace 500"));
    host->waitFor("started");
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 80000));
    host->signal(SIGKILL);
    host->wait();
  }
  drain();
  const Tally tally = this->tally(endpoint);
  EXPECT_LE(tally.duplicates, static_cast<std::size_t>(atATime * kills));
  figure(
      "An accepted event is delivered at least once with eight requests at a time, too; what is "
      "sent twice was under way",
      text(kills, " SIGKILLs at random moments"), text(tally));
}

TEST_F(ReliabilityTest, NoCallWaitsForDiskOrNetwork) {
  const Port silent(Port::Kind::silent);
  configure(silent.url(),
            R"(,"RequestTimeoutSeconds":0.3,"RetryBaseSeconds":0.01,"MaxQueuedMessages":100000)");
  const auto result =
      run(text("--threads 2 --count ", loops(1500, 15000), " --pace 2000 --end exit"), "sync=2000");
  EXPECT_GE(result["syncs"], 1);
  EXPECT_EQ(result["accepted"], 2 * loops(1500, 15000));
  // Who waits for the disk waits for most of 2 s; a busy machine may hold a thread up for less.
  EXPECT_LT(result["longest-us"], 1000000);
  EXPECT_LT(result["median-us"], sanitized ? 5000 : 1000);
  EXPECT_LT(result["p999-us"], isSoak() ? 5000 : 100000);
  figure(
      "A host's thread waits neither for the disk nor for the network",
      text("every wait for the disk takes 2 s more, and the endpoint never answers: duration of ",
           result["accepted"], " calls"),
      text("median ", milliseconds(result["median-us"]), ", 99.9 % within ",
           milliseconds(result["p999-us"]), ", longest ", milliseconds(result["longest-us"])));
}

TEST_F(ReliabilityTest, TheQueueIsBounded) {
  const Port refusing(Port::Kind::refusing);
  setenv("VANTAMO_DEBUG", "1", 1);
  std::string measured;
  for (const std::string& bound : {R"(,"MaxQueuedMessages":100)"s, R"(,"MaxQueueBytes":65536)"s}) {
    std::filesystem::remove(errors_);
    std::filesystem::remove(log_);
    configure(refusing.url(), bound);
    const auto result = run("--threads 2 --count 1000 --end exit");
    const std::size_t accepted = this->accepted().size();
    EXPECT_EQ(static_cast<long long>(accepted), result["accepted"]);
    EXPECT_EQ(static_cast<long long>(2000 - accepted), result["refused-full"]);
    EXPECT_GT(accepted, 50U);
    EXPECT_LT(accepted, 400U);
    const std::size_t lines = occurrences(contentOf(errors_), "refused: the queue is full");
    EXPECT_GT(lines, 0U);
    EXPECT_LE(lines, 10U);
    Endpoint endpoint;
    configure(endpoint.url(), bound);
    drain();
    EXPECT_EQ(tally(endpoint).duplicates, 0U);
    EXPECT_EQ(endpoint.wait(0).size(), accepted);
    measured += text(measured.empty() ? "" : "; ", accepted, " taken and delivered, ",
                     result["refused-full"], " refused and counted, ", lines, " lines in the log");
  }
  figure("The queue has bounds, and a refusal is told",
         "2,000 events while offline: at most 100 messages; at most 64 KiB", measured);
}

TEST_F(ReliabilityTest, ClocksMayJumpAndAnIdleLibraryDoesNothing) {
  {
    constexpr std::size_t refusals = 5;
    Endpoint endpoint([](std::size_t number) { return number < refusals ? 503 : 204; });
    configure(endpoint.url(), R"(,"RetryBaseSeconds":0.05)");
    const auto result = run("--clock-jumps --count 50 --flush 20000 --pace 1000");
    EXPECT_EQ(result["flushed"], 1);
    EXPECT_EQ(endpoint.wait(0).size(), 50 + refusals);
    EXPECT_EQ(tally(endpoint).lost, 0U);
    figure("No wait depends on the time of day",
           "it jumps by ten years, forth and back, at each look; the first 5 attempts fail",
           text(endpoint.wait(0).size(), " attempts for 50 events, all delivered"));
  }
  const int duration = loops(2000, 60000);
  Endpoint endpoint;
  const Port refusing(Port::Kind::refusing);
  std::string measured;
  for (const bool online : {true, false}) {
    configure(online ? endpoint.url() : refusing.url(), R"(,"RetryBaseSeconds":3600)");
    const auto result =
        run(text("--count 20 --flush ", online ? 20000 : 300, " --idle ", duration));
    EXPECT_LT(result["idle-cpu-us"], duration * 10);  // 1 %
    // Those of the system's, such as a page that had to be read; and a sanitizer's own thread.
    EXPECT_LE(result["idle-wakeups"], sanitized ? duration / 50 : 2);
    measured += text(online ? "online " : "; offline ", milliseconds(result["idle-cpu-us"]),
                     " of processor time, ", result["idle-wakeups"], " wake-ups");
  }
  figure("A library with nothing to do does nothing",
         text(duration / 1000, " s with all delivered; with a long wait for a retry"), measured);
}

}  // namespace
}  // namespace vantamo::test
