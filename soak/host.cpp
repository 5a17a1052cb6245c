// The host application of the reliability tests: fires events with ids of its own from several
// threads, logs each id that was accepted, and tells at its end what it has seen, a name and a
// value on each line.

#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <thread>

#include "soak/faults.h"
#include "soak/process_counts.h"
#include "vantamo/default_core.h"
#include "vantamo/platform.h"
#include "vantamo/vantamo.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using vantamo::test::descriptorCount;
using vantamo::test::threadCount;

struct Choices {
  std::string bundle;
  std::string log;
  std::string prefix = "m";
  std::string plugin;
  std::string program = "/proc/self/exe";
  std::string end = "return";
  int threads = 1;
  int count = 0;
  int pace = 0;
  int flush = 0;
  int cycles = 0;
  int idle = 0;
  int umask = -1;
  int children = 0;
  bool startsNothing = false;
  bool clockJumps = false;
  bool forks = false;
};

long long nowMicroseconds() {
  return std::chrono::duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

void put(int fd, const std::string& line) {
  if (::write(fd, line.data(), line.size()) < 0) std::abort();
}
template <class Value>
void say(const std::string& name, Value value) {
  std::ostringstream line;
  line << name << ' ' << value << '\n';
  put(STDOUT_FILENO, line.str());
}

class Host {
 public:
  explicit Host(Choices choices)
      : choices_(std::move(choices)),
        log_(::open(choices_.log.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600)),
        threadsBefore_(threadCount()),
        descriptorsBefore_(descriptorCount()) {}

  void run() {
    if (choices_.umask >= 0) ::umask(static_cast<mode_t>(choices_.umask));
    vantamo::PlatformOverrides overrides;
    overrides.mainBundleFolder = choices_.bundle;
    vantamo::setPlatformOverrides(overrides);
    if (choices_.clockJumps) setJumpingClock();
    if (!choices_.plugin.empty()) return runPlugin();
    if (choices_.startsNothing) return;
    if (choices_.children > 0) inheritedBefore_ = seenByChild();
    say("started", Vantamo::startup());
    produce();
    if (choices_.flush > 0) say("flushed", flush(choices_.flush));
    if (choices_.idle > 0) idle();
    tellFigures();
    if (choices_.end == "return") {
      Vantamo::shutdown();
      tellLeftOvers();
    }
  }

 private:
  static bool flush(int limit) { return vantamo::default_core::flush(milliseconds(limit)); }

  // Ten years on and ten years back at each look at it.
  static void setJumpingClock() {
    const auto clock = [] {
      static std::atomic<int> looks{0};
      const auto jump = std::chrono::hours(24 * 3650) * (++looks % 3 - 1);
      return std::chrono::system_clock::now() + jump;
    };
    if (!vantamo::default_core::setOptions({.wallClock = clock})) std::abort();
  }

  bool fire(const std::string& id, std::vector<long long>& durations) {
    const auto begin = steady_clock::now();
    const bool accepted = Vantamo::fireElement({.elementId = id});
    durations.push_back(
        std::chrono::duration_cast<microseconds>(steady_clock::now() - begin).count());
    if (accepted) put(log_, id + ' ' + std::to_string(nowMicroseconds()) + '\n');
    if (!accepted && !refused_.exchange(true)) say("refused-first", id);
    ++calls_;
    return accepted;
  }

  void produce() {
    std::vector<std::vector<long long>> durations(static_cast<std::size_t>(choices_.threads));
    std::vector<std::thread> threads;
    for (int t = 0; t < choices_.threads; ++t) {
      threads.emplace_back([this, t, &times = durations[static_cast<std::size_t>(t)]] {
        for (int i = 0; i < choices_.count && !stop_; ++i) {
          fire(choices_.prefix + std::to_string(t) + '.' + std::to_string(i), times);
          if (choices_.pace > 0) std::this_thread::sleep_for(microseconds(choices_.pace));
        }
      });
    }
    meanwhile();
    for (std::thread& thread : threads) thread.join();
    if (choices_.end == "kill") ::raise(SIGKILL);
    for (const auto& times : durations) {
      durations_.insert(durations_.end(), times.begin(), times.end());
    }
  }

  // What the host does while it fires.
  void meanwhile() {
    for (int i = 0; i < choices_.cycles; ++i) {
      Vantamo::shutdown();
      if (!Vantamo::startup()) say("failed-startup", i);
      waitForCalls(calls_ + 10);
    }
    if (choices_.cycles > 0) stop_ = true;
    // Not earlier: what libcurl and OpenSSL open for a moment while they start can be inherited.
    while (choices_.children > 0 && vantamo::default_core::stats().delivered == 0) pause();
    std::size_t inherited = inheritedBefore_;
    for (int i = 0; i < choices_.children; ++i) inherited = std::max(inherited, seenByChild());
    if (choices_.children > 0) say("inherited", inherited - inheritedBefore_);
    if (choices_.forks) {
      waitForCalls(choices_.threads * choices_.count / 2);
      forkChild();
    }
  }

  void waitForCalls(int count) const {
    while (calls_ < count) pause();
  }
  static void pause() { std::this_thread::sleep_for(microseconds(100)); }

  [[nodiscard]] std::size_t seenByChild() const {
    std::string program = choices_.program;
    std::string flag = "--list-descriptors";
    std::array<char*, 3> arguments{program.data(), flag.data(), nullptr};
    pid_t child = 0;
    if (::posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments.data(), environ) != 0) {
      std::abort();
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return static_cast<std::size_t>(WEXITSTATUS(status));
  }

  void forkChild() {
    const pid_t child = ::fork();
    if (child != 0) {
      int status = -1;
      ::waitpid(child, &status, 0);
      say("child-status", status);
      return;
    }
    ::alarm(60);  // a hang is a failure
    std::vector<long long> durations;
    say("child-inert", !Vantamo::fireElement({.elementId = "never"}));
    bool all = Vantamo::startup();
    for (int i = 0; i < 50; ++i) {
      all = fire(choices_.prefix + "child" + std::to_string(i), durations) && all;
    }
    all = flush(20000) && all;
    std::exit(all ? 0 : 1);
  }

  void runPlugin() {
    for (int i = 0; i < choices_.cycles; ++i) {
      void* plugin = ::dlopen(choices_.plugin.c_str(), RTLD_NOW | RTLD_LOCAL);
      if (plugin == nullptr) throw std::runtime_error(::dlerror());
      auto* const run =
          reinterpret_cast<bool (*)(const char*, const char*)>(::dlsym(plugin, "runOnce"));
      const std::string id = choices_.prefix + std::to_string(i);
      if (run(choices_.bundle.c_str(), id.c_str())) put(log_, id + " 0\n");
      ::dlclose(plugin);
    }
    tellLeftOvers();
  }

  void idle() const {
    constexpr milliseconds untilQuiet{300};
    std::this_thread::sleep_for(untilQuiet);
    rusage before{};
    rusage after{};
    ::getrusage(RUSAGE_SELF, &before);
    std::this_thread::sleep_for(milliseconds(choices_.idle));
    ::getrusage(RUSAGE_SELF, &after);
    const auto used = [](const rusage& usage) {
      return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000000 + usage.ru_utime.tv_usec +
             usage.ru_stime.tv_usec;
    };
    say("idle-cpu-us", used(after) - used(before));
    say("idle-wakeups", after.ru_nvcsw - before.ru_nvcsw - 1);  // one is the measurement's own
  }

  void tellFigures() {
    const auto stats = vantamo::default_core::stats();
    say("accepted", stats.accepted);
    say("refused-full", stats.refusedFull);
    say("refused-by-storage", stats.refusedByStorage);
    say("durable", stats.durable);
    say("syncs", vantamo::test::syncCount());
    if (durations_.empty()) return;
    std::ranges::sort(durations_);
    const auto share = [this](std::size_t perMille) {
      return durations_[std::min(durations_.size() - 1, durations_.size() * perMille / 1000)];
    };
    say("median-us", share(500));
    say("p999-us", share(999));
    say("longest-us", durations_.back());
  }

  // Threads and descriptors beyond those there were before the first startup; the last ones end a
  // moment after the shutdown.
  void tellLeftOvers() const {
    const auto deadline = steady_clock::now() + std::chrono::seconds(10);
    while ((threadCount() > threadsBefore_ || descriptorCount() > descriptorsBefore_) &&
           steady_clock::now() < deadline) {
      std::this_thread::sleep_for(milliseconds(5));
    }
    say("left-threads", threadCount() - threadsBefore_);
    say("left-descriptors", descriptorCount() - descriptorsBefore_);
  }

  const Choices choices_;
  const int log_;
  const std::size_t threadsBefore_;
  const std::size_t descriptorsBefore_;
  std::size_t inheritedBefore_ = 0;
  std::vector<long long> durations_;
  std::atomic<int> calls_{0};
  std::atomic<bool> stop_{false};
  std::atomic<bool> refused_{false};
};

}  // namespace

int main(int argc, char** argv) {
  Choices choices;
  bool listDescriptors = false;
  CLI::App app{"Fires events and tells what it has seen"};
  app.add_option("--bundle", choices.bundle, "The main bundle's folder");
  app.add_option("--log", choices.log, "Where accepted ids go, with the time in us");
  app.add_option("--prefix", choices.prefix, "Of all ids");
  app.add_option("--threads", choices.threads, "That fire");
  app.add_option("--count", choices.count, "Events of each thread");
  app.add_option("--pace", choices.pace, "Pause between events, in us");
  app.add_option("--flush", choices.flush, "Wait at most so many ms for delivery");
  app.add_option("--cycles", choices.cycles, "Shutdowns and startups while threads fire");
  app.add_option("--idle", choices.idle, "Measure so many ms of doing nothing");
  app.add_option("--umask", choices.umask, "A decimal number");
  app.add_option("--children", choices.children, "Programs to run while threads fire");
  app.add_option("--program", choices.program, "What starts this program, for the children");
  app.add_option("--plugin", choices.plugin, "Load and unload this in each cycle instead");
  app.add_option("--end", choices.end, "return, exit without a shutdown, or kill");
  app.add_flag("--start-nothing", choices.startsNothing, "Do not start the library");
  app.add_flag("--clock-jumps", choices.clockJumps, "The time of day jumps by ten years");
  app.add_flag("--fork", choices.forks, "Fork a child that fires too");
  app.add_flag("--list-descriptors", listDescriptors, "Answer how many descriptors are open");
  CLI11_PARSE(app, argc, argv);
  if (listDescriptors) return static_cast<int>(descriptorCount());
  vantamo::test::runFirstThread();
  Host(choices).run();
  say("exits", nowMicroseconds());
  if (choices.end == "exit") std::exit(0);
  return 0;
}
