#include "tools/collect/collect_command.h"

#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "tools/collect/expectations.h"
#include "tools/collect/line_output.h"
#include "tools/plain_text.h"

namespace vantamo::tools::collect {
namespace {

std::atomic<Collector*> stoppedBySignals{nullptr};

void stopCollector(int /*signal*/) {
  if (Collector* collector = stoppedBySignals) collector->stop();
}

void onStopSignals(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  for (const int signal : {SIGINT, SIGTERM}) ::sigaction(signal, &action, nullptr);
}

std::optional<Plan> planOf(const CollectOptions& options) {
  if (!options.expect) return {};
  std::error_code error;
  std::ifstream file(*options.expect);
  if (!file || std::filesystem::is_directory(*options.expect, error)) {
    throw std::runtime_error(*options.expect + ": cannot be read");
  }
  return Plan(*options.expect, expectationsOf(file, *options.expect), {.inOrder = options.inOrder});
}

// Counts and judges the tags, and tells each in a line.
class Run final : public StoreObserver {
 public:
  explicit Run(const CollectOptions& options) : options_(options), plan_(planOf(options)) {}

  void stored(const Tag& tag) override {
    if (!options_.quiet) tell(*tag);
    if (!tag->counts) return;
    ++count_;
    if (!tag->problems.empty()) ++faulty_;
    if (plan_) plan_->add(tag);
  }
  void wasReset() override {
    count_ = 0;
    faulty_ = 0;
    if (plan_) plan_->clear();
  }

  [[nodiscard]] bool isOver(const TagStore& store) const {
    if (options_.until && count_ >= *options_.until) return true;
    const bool mayGoOn = options_.stay || options_.exact;
    return plan_ && ((plan_->isComplete() && !mayGoOn) || isTooMuch(store));
  }

  int judge(const TagStore& store) {
    lines_.tellLeftOut();
    const bool isPlanKept = plan_ && plan_->isComplete() && !options_.exact;
    bool isGood = !options_.until || count_ >= *options_.until || isPlanKept;
    if (!isGood) std::cout << count_ << " of " << *options_.until << " tags arrived\n";
    if (plan_) {
      if (isTooMuch(store)) std::cout << "ended: more tags have come than are kept\n";
      std::cout << plan_->difference() << plan_->matched() << " of " << plan_->size()
                << " expected tags arrived\n";
      isGood = isGood && plan_->isComplete() && !(options_.exact && plan_->hasUnexpected());
    }
    if (options_.strict && faulty_ > 0) {
      std::cout << faulty_ << " of " << count_ << " tags with problems\n";
      isGood = false;
    }
    return isGood ? 0 : 1;
  }

 private:
  // A plan is held against what is kept, and keeps no more.
  static bool isTooMuch(const TagStore& store) { return store.dropped() > 0; }

  void tell(const StoredTag& tag) {
    std::string line = shortText(tag);
    if (tag.repeatOf) line += " (again: #" + std::to_string(*tag.repeatOf) + ")";
    if (!tag.counts && !tag.repeatOf) line += " (not counted: not answered with 2xx)";
    lines_.write(line + "\n");
    for (const Problem& problem : tag.problems) {
      lines_.write("    problem: " + printable(problem.text) + "\n");
    }
  }

  const CollectOptions& options_;
  LineOutput lines_;
  std::optional<Plan> plan_;
  std::size_t count_ = 0;
  std::size_t faulty_ = 0;
};

void introduce(const Collector& collector) {
  const Listener& listener = collector.listener();
  std::cout << "page      " << collector.url() << "\nsettings  {\"PostMessageUrl\":\""
            << collector.postUrl() << "\"}\n";
  if (listener.onAll) {
    for (const std::string& address : addressesOfMachine()) {
      std::cout << "from elsewhere: http://" << address << ":" << listener.port << "/collect\n";
    }
  }
  if (!listener.onLoopback) {
    std::cout << "Whoever reaches this port can read what the tags carry.\n";
  }
  std::cout.flush();
}

std::optional<Collector::Clock::time_point> deadlineOf(const CollectOptions& options) {
  if (!options.timeoutSeconds) return {};
  const std::chrono::duration<double> limit(*options.timeoutSeconds);
  return Collector::Clock::now() + std::chrono::duration_cast<Collector::Clock::duration>(limit);
}

}  // namespace

StopAtSignals::StopAtSignals(Collector& collector) {
  stoppedBySignals = &collector;
  onStopSignals(&stopCollector);
}

StopAtSignals::~StopAtSignals() {
  onStopSignals(SIG_DFL);
  stoppedBySignals = nullptr;
}

int collect(const CollectOptions& options) {
  Run run(options);
  Collector collector(options.server);
  collector.store().observe(&run);
  {
    // Not for longer: one who does not read the verdict can still be ended.
    const StopAtSignals signals(collector);
    introduce(collector);
    collector.run([&] { return run.isOver(collector.store()); }, deadlineOf(options));
  }
  return run.judge(collector.store());
}

}  // namespace vantamo::tools::collect
