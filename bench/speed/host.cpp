// A host application to be measured, and the limits that its figures are held against, each in a
// process of its own. Tells what it has measured as one JSON object.

#include <curl/curl.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <span>
#include <thread>

#include "vantamo/default_core.h"
#include "vantamo/platform.h"
#include "vantamo/vantamo.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using Seconds = std::chrono::duration<double>;

struct Choices {
  std::string url;
  std::string folder;
  int count = 20'000;
  int attributes = 1;
  int threads = 1;
  int pace = 0;
  int flush = 0;
  int idle = 100;
  int settling = 0;
  int parallel = 1;
};

double cpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

long switches() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_nvcsw;
}

// A line of /proc/self/status, in kibibytes.
long memory(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    long value = 0;
    if (word == name + ":" && status >> value) return value;
  }
  return 0;
}

double inMilliseconds(Clock::duration time) { return Seconds(time).count() * 1000; }

// Microseconds that so many percent of the durations, in nanoseconds, do not exceed.
double percentile(std::vector<std::uint32_t>& durations, double percent) {
  if (durations.empty()) return 0;
  const auto place =
      durations.begin() +
      static_cast<std::ptrdiff_t>(static_cast<double>(durations.size() - 1) * percent / 100);
  std::nth_element(durations.begin(), place, durations.end());
  return *place / 1000.0;
}

template <class Work>
std::uint32_t timed(Work work) {
  const auto begin = Clock::now();
  work();
  return static_cast<std::uint32_t>((Clock::now() - begin).count());
}

constexpr std::array<std::pair<std::string_view, std::string_view>, 18> pairs = {{
    {"ci", "123"},
    {"vn2", "e4.0"},
    {"st", "1700000000"},
    {"vn1", "4.1.8"},
    {"ec", "UTF-8"},
    {"tid", "5"},
    {"pi", "product page"},
    {"pr", "sku-1"},
    {"pm", "Running shoe"},
    {"cg", "shoes"},
    {"pr_a1", "spring"},
    {"pr_a2", "web"},
    {"pr_a3", "red"},
    {"ul", "APP_APPLE_Bench"},
    {"cjen", "1"},
    {"cjuid", "39218402710612345678901"},
    {"cjsid", "2908172635"},
    {"cjvf", "1"},
}};

std::string pairsAsJson() {
  std::vector<std::pair<std::string, std::string>> built;
  built.reserve(pairs.size());
  for (const auto& [key, value] : pairs) built.emplace_back(key, value);
  rapidjson::StringBuffer buffer(nullptr, 1024);
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  for (const auto& [key, value] : built) {
    writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
    writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
  }
  writer.EndObject();
  return {buffer.GetString(), buffer.GetSize()};
}

// Does `work` so many times, `pace` microseconds apart; how long each time took, in nanoseconds.
template <class Work>
void repeat(std::span<std::uint32_t> durations, int pace, Work work) {
  auto next = Clock::now();
  for (auto& duration : durations) {
    duration = timed(work);
    if (pace == 0) continue;
    next += microseconds(pace);
    std::this_thread::sleep_until(next);
  }
}

// What no event can be faster than: a tag built and written as JSON; and what none can be that
// survives its process without memory shared with a file: the same, written to one.
struct Reference {
  double json = 0;
  double file = 0;
};

Reference reference(const Choices& choices) {
  std::vector<std::uint32_t> durations(choices.pace == 0 ? 20'000U : 1'000U);
  std::size_t written = 0;
  repeat(durations, choices.pace, [&] { written += pairsAsJson().size(); });
  Reference measured{percentile(durations, 50), 0};
  const std::string path = choices.folder + "/reference";
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "w"), &std::fclose);
  if (!file || written == 0) throw std::runtime_error("cannot write " + path);
  repeat(durations, choices.pace, [&] {
    const std::string text = pairsAsJson();
    written += static_cast<std::size_t>(::write(::fileno(file.get()), text.data(), text.size()));
  });
  measured.file = percentile(durations, 50);
  return measured;
}

bool fire(const vantamo::TextList& attributes) {
  return Vantamo::fireProductview({.pageId = "product page",
                                   .productId = "sku-1",
                                   .productName = "Running shoe",
                                   .category = "shoes",
                                   .attributes = attributes});
}

// Fires from several threads; the durations of all calls, in nanoseconds.
void fireAll(const Choices& choices, std::span<std::uint32_t> durations) {
  const std::vector<std::string> texts(static_cast<std::size_t>(choices.attributes),
                                       "an attribute");
  const auto share = durations.size() / static_cast<std::size_t>(choices.threads);
  std::vector<std::thread> threads;
  std::barrier together(choices.threads);
  for (int i = 0; i < choices.threads; ++i) {
    const auto own = durations.subspan(static_cast<std::size_t>(i) * share, share);
    threads.emplace_back([&, own] {
      together.arrive_and_wait();
      repeat(own, choices.pace, [&] { fire(texts); });
    });
  }
  for (auto& thread : threads) thread.join();
}

nlohmann::json measureHost(const Choices& choices) {
  setenv("VANTAMO_DEBUG", "0", 1);
  vantamo::PlatformOverrides overrides;
  overrides.cachesDirectory = choices.folder;
  overrides.mainBundleFolder = choices.folder;
  vantamo::setPlatformOverrides(overrides);
  std::vector<std::uint32_t> durations(static_cast<std::size_t>(choices.count), 1);
  nlohmann::json figures;
  const long memoryBefore = memory("VmRSS");
  const long anonBefore = memory("RssAnon");

  auto begin = Clock::now();
  const bool started = Vantamo::startup();
  figures["startupMs"] = inMilliseconds(Clock::now() - begin);
  if (!started) throw std::runtime_error("the library did not start");

  std::this_thread::sleep_for(milliseconds(choices.settling));
  const double cpuBefore = cpuSeconds();
  begin = Clock::now();
  fireAll(choices, durations);
  figures["firingSeconds"] = Seconds(Clock::now() - begin).count();
  if (choices.flush > 0) {
    figures["flushed"] = vantamo::default_core::flush(milliseconds(choices.flush));
  }
  figures["seconds"] = Seconds(Clock::now() - begin).count();
  figures["cpuSeconds"] = cpuSeconds() - cpuBefore;
  std::this_thread::sleep_for(milliseconds(choices.idle));
  figures["memoryKiB"] = memory("VmRSS") - memoryBefore;
  figures["memoryPeakKiB"] = memory("VmHWM") - memoryBefore;
  figures["memoryAnonKiB"] = memory("RssAnon") - anonBefore;
  const long switchesBefore = switches();
  std::this_thread::sleep_for(milliseconds(choices.idle));
  figures["wakeUps"] = switches() - switchesBefore - 1;  // this thread's own

  const auto stats = vantamo::default_core::stats();
  figures["accepted"] = stats.accepted;
  figures["delivered"] = stats.delivered;
  figures["refused"] = stats.refused;
  begin = Clock::now();
  Vantamo::shutdown();
  figures["shutdownMs"] = inMilliseconds(Clock::now() - begin);
  begin = Clock::now();
  Vantamo::startup();
  figures["nextStartupMs"] = inMilliseconds(Clock::now() - begin);
  Vantamo::shutdown();
  figures["p50"] = percentile(durations, 50);
  figures["p99"] = percentile(durations, 99);
  figures["max"] = percentile(durations, 100);
  const Reference limits = reference(choices);
  figures["jsonP50"] = limits.json;
  figures["fileP50"] = limits.file;
  return figures;
}

// libcurl alone, with requests like the core's, each with a key of its own: so many at a time over
// as many connections.
class BareLoop {
 public:
  BareLoop(const std::string& url, int parallel) : multi_(curl_multi_init()) {
    for (int i = 0; i < parallel; ++i) {
      Lane& lane = *lanes_.emplace_back(std::make_unique<Lane>());
      curl_easy_setopt(lane.easy, CURLOPT_PRIVATE, &lane);
      curl_easy_setopt(lane.easy, CURLOPT_URL, url.c_str());
      curl_easy_setopt(lane.easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body_.size()));
      curl_easy_setopt(lane.easy, CURLOPT_POSTFIELDS, body_.data());
      curl_easy_setopt(lane.easy, CURLOPT_HTTPHEADER, lane.headers);
      curl_easy_setopt(lane.easy, CURLOPT_NOSIGNAL, 1L);
    }
  }
  BareLoop(const BareLoop&) = delete;
  BareLoop& operator=(const BareLoop&) = delete;
  ~BareLoop() {
    lanes_.clear();
    curl_multi_cleanup(multi_);
  }

  void run(int count) {
    if (lanes_.size() == 1) {
      for (int i = 0; i < count; ++i) {
        lanes_[0]->number(++number_);
        check(curl_easy_perform(lanes_[0]->easy));
      }
      return;
    }
    int begun = 0;
    const auto begin = [&](Lane& lane) {
      if (begun++ >= count) return;
      lane.number(++number_);
      curl_multi_add_handle(multi_, lane.easy);
    };
    for (const auto& lane : lanes_) begin(*lane);
    for (int ended = 0; ended < count;) {
      int running = 0;
      curl_multi_perform(multi_, &running);
      bool any = false;
      int left = 0;
      while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        check(message->data.result);
        void* lane = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &lane);
        curl_multi_remove_handle(multi_, message->easy_handle);
        ++ended;
        any = true;
        begin(*static_cast<Lane*>(lane));
      }
      if (!any) curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
  }

 private:
  struct Lane {
    Lane() {
      for (const char* line : {"Idempotency-Key: 0a1b2c3d-0a1b-4c2d-8e3f-000000000000",
                               "Content-Type: application/json",
                               "User-Agent: NQCore/1.0 (Linux; x86_64)", "Expect:"}) {
        headers = curl_slist_append(headers, line);
      }
    }
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;
    ~Lane() {
      curl_easy_cleanup(easy);
      curl_slist_free_all(headers);
    }
    // Writes it into the key.
    void number(int value) const {
      char* end = headers->data + std::strlen(headers->data);
      for (int digit = 0; digit < 12; ++digit, value /= 10) {
        *--end = static_cast<char>('0' + value % 10);
      }
    }

    CURL* easy = curl_easy_init();
    curl_slist* headers = nullptr;
  };

  static void check(CURLcode code) {
    if (code != CURLE_OK) throw std::runtime_error(curl_easy_strerror(code));
  }

  CURLM* multi_;
  std::vector<std::unique_ptr<Lane>> lanes_;
  const std::string body_ = pairsAsJson();
  int number_ = 0;
};

nlohmann::json measureCurl(const Choices& choices) {
  const long memoryBefore = memory("VmRSS");
  const long anonBefore = memory("RssAnon");
  auto begin = Clock::now();
  curl_global_init(CURL_GLOBAL_DEFAULT);
  const double start = inMilliseconds(Clock::now() - begin);
  BareLoop loop(choices.url, choices.parallel);
  loop.run(choices.parallel);  // the connections
  const double cpuBefore = cpuSeconds();
  begin = Clock::now();
  loop.run(choices.count);
  return {{"startMs", start},
          {"seconds", Seconds(Clock::now() - begin).count()},
          {"cpuSeconds", cpuSeconds() - cpuBefore},
          {"memoryAnonKiB", memory("RssAnon") - anonBefore},
          {"memoryKiB", memory("VmRSS") - memoryBefore}};
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"What is measured, in a process of its own"};
  Choices choices;
  app.require_subcommand(1);
  CLI::App* fires = app.add_subcommand("fire", "fire product views");
  fires->add_option("--folder", choices.folder, "caches and settings")->required();
  fires->add_option("--count", choices.count, "events");
  fires->add_option("--attributes", choices.attributes, "attributes of each event");
  fires->add_option("--threads", choices.threads, "threads that fire");
  fires->add_option("--pace", choices.pace, "microseconds from event to event");
  fires->add_option("--flush", choices.flush, "milliseconds to wait for delivery");
  fires->add_option("--idle", choices.idle, "milliseconds to rest afterwards, twice");
  fires->add_option("--settling", choices.settling, "milliseconds to rest before the first event");
  CLI::App* curl = app.add_subcommand("curl", "post with libcurl alone");
  curl->add_option("--url", choices.url, "the endpoint")->required();
  curl->add_option("--count", choices.count, "requests");
  curl->add_option("--parallel", choices.parallel, "requests at a time");
  CLI11_PARSE(app, argc, argv);
  try {
    std::cout << (fires->parsed() ? measureHost(choices) : measureCurl(choices)) << std::endl;
  } catch (const std::exception& exception) {
    std::cerr << exception.what() << std::endl;
    return 1;
  }
  return 0;
}
