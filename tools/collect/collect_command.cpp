#include "tools/collect/collect_command.h"

#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <stdexcept>

#include "tools/collect/expectations.h"
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
  Run(const CollectOptions& options, std::ostream& output)
      : options_(options), output_(output), plan_(planOf(options)) {}

  void stored(const Tag& tag) override {
    if (!options_.quiet) tell(*tag);
    if (!tag->counts) return;
    ++count_;
    if (!tag->problems.empty()) ++faulty_;
    if (plan_ && count_ <= TagStore::mostTags) plan_->add(tag);
  }
  void wasReset() override {
    count_ = 0;
    faulty_ = 0;
    if (plan_) plan_->clear();
  }

  [[nodiscard]] bool isOver() const {
    if (options_.until && count_ >= *options_.until) return true;
    // A plan is not held against more than are kept.
    return plan_ && ((plan_->isComplete() && !options_.exact) || count_ >= TagStore::mostTags);
  }

  int judge() {
    const bool isPlanKept = plan_ && plan_->isComplete() && !options_.exact;
    bool isGood = !options_.until || count_ >= *options_.until || isPlanKept;
    if (!isGood) output_ << count_ << " of " << *options_.until << " tags arrived\n";
    if (plan_) {
      output_ << plan_->difference() << plan_->matched() << " of " << plan_->size()
              << " expected tags arrived\n";
      isGood = isGood && plan_->isComplete() && !(options_.exact && plan_->hasUnexpected());
    }
    if (options_.strict && faulty_ > 0) {
      output_ << faulty_ << " of " << count_ << " tags with problems\n";
      isGood = false;
    }
    return isGood ? 0 : 1;
  }

 private:
  void tell(const StoredTag& tag) {
    output_ << shortText(tag);
    if (tag.repeatOf) output_ << " (again: #" << *tag.repeatOf << ")";
    if (!tag.counts && !tag.repeatOf) output_ << " (not counted: not answered with 2xx)";
    output_ << '\n';
    for (const Problem& problem : tag.problems) {
      output_ << "    problem: " << printable(problem.text) << '\n';
    }
    output_.flush();
  }

  const CollectOptions& options_;
  std::ostream& output_;
  std::optional<Plan> plan_;
  std::size_t count_ = 0;
  std::size_t faulty_ = 0;
};

void introduce(const Collector& collector, std::ostream& output) {
  const Listener& listener = collector.listener();
  output << "page      " << collector.url() << "\nsettings  {\"PostMessageUrl\":\""
         << collector.postUrl() << "\"}\n";
  if (listener.onAll) {
    for (const std::string& address : addressesOfMachine()) {
      output << "from elsewhere: http://" << address << ":" << listener.port << "/collect\n";
    }
  }
  if (!listener.onLoopback) {
    output << "Whoever reaches this port can read what the tags carry.\n";
  }
  output.flush();
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

int collect(const CollectOptions& options, std::ostream& output) {
  Run run(options, output);
  Collector collector(options.server);
  collector.store().observe(&run);
  const StopAtSignals signals(collector);
  introduce(collector, output);
  std::optional<Collector::Clock::time_point> deadline;
  if (options.timeoutSeconds) {
    deadline =
        Collector::Clock::now() + std::chrono::duration_cast<Collector::Clock::duration>(
                                      std::chrono::duration<double>(*options.timeoutSeconds));
  }
  collector.run([&run] { return run.isOver(); }, deadline);
  return run.judge();
}

}  // namespace vantamo::tools::collect
