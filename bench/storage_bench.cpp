// What it costs to keep a message, by each way that could be chosen: the journal, which is what a
// host's thread pays, and the database, which the sending thread pays.

#include <benchmark/benchmark.h>

#include <filesystem>

#include "cores/default/durable_queue.h"
#include "platform/random.h"

namespace {

using namespace vantamo::core;
namespace fs = std::filesystem;

class Scratch {
 public:
  Scratch() = default;
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() {
    std::error_code error;
    fs::remove_all(path_, error);
  }
  [[nodiscard]] std::string queue() const { return (path_ / "queue").string(); }

 private:
  const fs::path path_ = fs::temp_directory_path() / ("vantamo-" + vantamo::platform::randomUuid());
};

Message message() {
  return {vantamo::platform::randomUuid(), "VTMod", std::string(400, 'x'), 0, 0, 0};
}

void appendToJournal(benchmark::State& state) {
  const Scratch scratch;
  Journal journal(vantamo::platform::PrivateFolder::at(scratch.queue()));
  const Message kept = message();
  for (auto _ : state) {
    journal.append(kept);
    if (journal.end() > (1U << 20U)) {
      state.PauseTiming();
      journal.rotate(vantamo::platform::PrivateFolder::at(scratch.queue()));
      state.ResumeTiming();
    }
  }
}
BENCHMARK(appendToJournal);

// One transaction, made lasting, of so many messages.
void importIntoDatabase(benchmark::State& state) {
  const Scratch scratch;
  QueueStore store(vantamo::platform::PrivateFolder::at(scratch.queue()));
  const std::vector<Message> batch(static_cast<std::size_t>(state.range(0)), message());
  std::int64_t count = 0;
  for (auto _ : state) {
    store.import(batch, 1, 0);
    count += state.range(0);
    if (count % 10'000 == 0) store.removeThrough(count);
  }
  state.SetItemsProcessed(count);
}
BENCHMARK(importIntoDatabase)->Arg(1)->Arg(10)->Arg(100)->UseRealTime();

// A message's whole way through the queue, in batches as under load.
void passThroughQueue(benchmark::State& state) {
  const Scratch scratch;
  DurableQueue queue(scratch.queue());
  constexpr int batch = 100;
  std::int64_t count = 0;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) queue.append(message());
    static_cast<void>(queue.takeIn());
    while (const QueuedMessage* front = queue.front()) {
      queue.delivered(front->id);
      ++count;
    }
    queue.settle();
  }
  state.SetItemsProcessed(count);
}
BENCHMARK(passThroughQueue)->UseRealTime();

}  // namespace
