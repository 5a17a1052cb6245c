// Several processes, children, plug-ins and the process's end.

#include "tests/reliability/reliability_test.h"

namespace vantamo::test {
namespace {

TEST_F(ReliabilityTest, SeveralProcessesShareOneApplication) {
  Endpoint endpoint;
  configure(endpoint.url());
  const int rounds = loops(3, 30);
  for (int round = 0; round < rounds; ++round) {
    std::vector<std::unique_ptr<HostProcess>> hosts;
    for (const std::string name : {"a", "b", "c"}) {
      hosts.push_back(start(text("--prefix ", name, round, ". --count ",
                                 name == "c" ? "200" : "1000000", " --pace 1000 --end exit")));
    }
    static_cast<void>(endpoint.wait(endpoint.wait(0).size() + 100));
    hosts[0]->signal(SIGKILL);
    hosts[2]->wait();
    hosts[1]->signal(SIGKILL);
    for (const auto& host : hosts) host->wait();
  }
  drain();
  const Tally tally = this->tally(endpoint);
  EXPECT_LE(tally.duplicates, static_cast<std::size_t>(3 * rounds));
  std::set<std::string> visitors;
  for (const auto& request : endpoint.wait(0)) visitors.insert(request.key("cjuid"));
  EXPECT_EQ(visitors.size(), 1U);
  figure(
      "Processes of one application at a time do not disturb each other; what a killed one has "
      "left, the next one sends",
      text(rounds, " times three at once, two of them killed, then one run"),
      text(tally, ", ", visitors.size(), " visitor id"));
}

TEST_F(ReliabilityTest, AForkedChildBeginsAnew) {
  if (sanitized) GTEST_SKIP() << "a sanitizer's memory cannot be used after a busy process's fork";
  Endpoint endpoint;
  configure(endpoint.url());
  const int rounds = loops(5, 50);
  for (int round = 0; round < rounds; ++round) {
    const auto result =
        run(text("--prefix f", round, ". --threads 2 --count 100 --pace 500 --fork --flush 20000"));
    EXPECT_EQ(result["child-inert"], 1);
    EXPECT_EQ(result["child-status"], 0);
    EXPECT_EQ(result["flushed"], 1);
  }
  const Tally tally = this->tally(endpoint);
  EXPECT_EQ(tally.accepted, static_cast<std::size_t>(250 * rounds));
  EXPECT_EQ(tally.duplicates, 0U);
  figure("A forked child is inert until it starts the library anew; the parent notices nothing",
         text(rounds, " forks of a host that fires; the child fires too"), text(tally));
}

TEST_F(ReliabilityTest, ProgramsInheritNothingAndTheProcessEndsAtOnce) {
  Endpoint endpoint;
  configure(endpoint.url());
  const std::string programs = std::to_string(loops(20, 200));
  const auto result = run(text("--count 500 --pace 500 --flush 20000 --children ", programs,
                               " --program ", VANTAMO_RELIABILITY_HOST));
  EXPECT_EQ(result["inherited"], 0);
  figure("Programs that the host runs inherit no descriptor of the library",
         text(programs, " programs run while requests are under way"),
         text(result["inherited"], " inherited"));

  const Port silent(Port::Kind::silent);
  configure(silent.url());
  const auto timeOfExit = [this](const std::string& arguments) {
    const long long begun = run(arguments)["exits"];
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count() - begun;
  };
  long long longest = 0;
  const int rounds = loops(5, 50);
  for (int i = 0; i < rounds; ++i) {
    const long long nothing = timeOfExit("--start-nothing --end exit");
    const long long busy = timeOfExit("--count 50 --pace 1000 --end exit");
    longest = std::max(longest, busy - nothing);
  }
  EXPECT_LT(longest, 3000000);
  figure("exit() does not wait for the network",
         text(rounds,
              " ends of a process while a request gets no answer, compared with a process that "
              "never started the library"),
         text("at most ", milliseconds(longest), " more"));
}

TEST_F(ReliabilityTest, AShutdownGivesBackWhatTheStartupTook) {
  Endpoint endpoint;
  configure(endpoint.url());
  const std::string cycles = std::to_string(loops(60, 1000));
  const auto result =
      run(text("--threads 2 --count 1000000 --pace 300 --cycles ", cycles, " --flush 30000"));
  EXPECT_EQ(result["flushed"], 1);
  EXPECT_EQ(result["left-threads"], 0);
  EXPECT_EQ(result["left-descriptors"], 0);
  EXPECT_EQ(result.lines.count("failed-startup"), 0U);
  const std::string loads = std::to_string(loops(20, 200));
  const auto plugged =
      run(text("--prefix p --plugin ", VANTAMO_RELIABILITY_PLUGIN, " --cycles ", loads));
  EXPECT_EQ(plugged["left-threads"], 0);
  EXPECT_EQ(plugged["left-descriptors"], 0);
  drain();
  const Tally tally = this->tally(endpoint);
  EXPECT_GE(tally.accepted, std::stoul(loads));
  figure(
      "A shutdown gives back all threads and descriptors",
      text(cycles, " shutdowns and startups under firing threads; ", loads,
           " times a plug-in with the library in it loaded, used and unloaded"),
      text(result["left-threads"] + plugged["left-threads"], " threads and ",
           result["left-descriptors"] + plugged["left-descriptors"], " descriptors left; ", tally));
}

}  // namespace
}  // namespace vantamo::test
