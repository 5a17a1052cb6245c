// What each part of an event's road costs on the host's thread, and the whole road over a core that
// does nothing with the message.

#include <benchmark/benchmark.h>

#include <filesystem>

#include "constraints/vt_constraints_checker.h"
#include "facade/parameters.h"
#include "platform/random.h"
#include "state/vt_tags_ring_buffer.h"
#include "support/json.h"
#include "tags/event_formats.h"
#include "tags/vt_message.h"
#include "tags/vt_tag.h"
#include "tags/vt_tag_dictionary.h"
#include "vantamo/platform.h"
#include "vantamo/recording_core.h"
#include "vantamo/vantamo.h"

namespace {

using vantamo::ProductView;
using vantamo::RecordingCore;

// A library that runs, with its state in a folder that is gone at the end.
class RunningLibrary {
 public:
  RunningLibrary() {
    setenv("VANTAMO_DEBUG", "0", 1);
    vantamo::PlatformOverrides overrides;
    overrides.cachesDirectory = folder_.string();
    vantamo::setPlatformOverrides(overrides);
    RecordingCore& core = RecordingCore::sharedInstance();
    core.settings["VTMod"] = {{"PostMessageUrl", "http://localhost/"}, {"AppName", "Bench"}};
    Vantamo::startup();
    VTTagsRingBuffer::sharedInstance().setFirstPageView(false);
  }
  RunningLibrary(const RunningLibrary&) = delete;
  RunningLibrary& operator=(const RunningLibrary&) = delete;
  ~RunningLibrary() {
    Vantamo::shutdown();
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }

 private:
  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("vantamo-bench-" + vantamo::platform::randomUuid());
};

std::vector<std::string> attributes(const benchmark::State& state) {
  return std::vector<std::string>(static_cast<std::size_t>(state.range(0)), "an attribute");
}

ProductView event(const std::vector<std::string>& list) {
  return {.pageId = "product page",
          .productId = "sku-1",
          .productName = "Shoe",
          .category = "shoes",
          .attributes = list};
}

void queryStringBuilder(benchmark::State& state) {
  const RunningLibrary library;
  const auto list = attributes(state);
  for (auto _ : state) {
    auto tag = VTTag::tagWith("Bench", "123");
    benchmark::DoNotOptimize(tag.makeProductViewTag(event(list)));
  }
}
BENCHMARK(queryStringBuilder)->Arg(0)->Arg(50);

void dictionaryBuilder(benchmark::State& state) {
  const RunningLibrary library;
  const auto list = attributes(state);
  for (auto _ : state) {
    auto tag = VTTagDictionary::tagWithApplicationName("Bench", "123");
    benchmark::DoNotOptimize(tag.makeProductViewTag(event(list)));
  }
}
BENCHMARK(dictionaryBuilder)->Arg(0)->Arg(50);

void limits(benchmark::State& state) {
  const auto list = attributes(state);
  for (auto _ : state) {
    const vantamo::facade::Parameters parameters(vantamo::tags::productViewFormat, event(list));
    benchmark::DoNotOptimize(
        VTConstraintsChecker::satisfy(parameters.arguments(), "fireProductview"));
  }
}
BENCHMARK(limits)->Arg(0)->Arg(50);

void queryStringParser(benchmark::State& state) {
  const RunningLibrary library;
  auto tag = VTTag::tagWith("Bench", "123");
  const auto list = attributes(state);
  tag.makeProductViewTag(event(list));
  for (auto _ : state) {
    benchmark::DoNotOptimize(vantamo::tags::dictionaryWithQueryString(tag.tag()));
  }
}
BENCHMARK(queryStringParser)->Arg(0)->Arg(50);

void serialisation(benchmark::State& state) {
  const RunningLibrary library;
  auto tag = VTTagDictionary::tagWithApplicationName("Bench", "123");
  const auto list = attributes(state);
  tag.makeProductViewTag(event(list));
  const vantamo::Value::Map map = tag.tagDict();
  for (auto _ : state) benchmark::DoNotOptimize(vantamo::support::writeJson(map));
}
BENCHMARK(serialisation)->Arg(0)->Arg(50);

void facadeCall(benchmark::State& state) {
  const RunningLibrary library;
  const auto list = attributes(state);
  auto& messages = RecordingCore::sharedInstance().messages;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Vantamo::fireProductview(event(list)));
    messages.clear();
  }
}
BENCHMARK(facadeCall)->Arg(0)->Arg(50);

void ringBuffer(benchmark::State& state) {
  VTTagsRingBuffer buffer;
  const auto tag = std::make_shared<const vantamo::state::StoredTag>();
  for (auto _ : state) buffer.addObject(tag);
}
BENCHMARK(ringBuffer);

void newSession(benchmark::State& state) {
  const RunningLibrary library;
  for (auto _ : state) benchmark::DoNotOptimize(Vantamo::startNewSession());
}
BENCHMARK(newSession);

}  // namespace
