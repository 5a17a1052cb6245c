// Measures the library as a host meets it, and holds each figure against a limit that is measured
// in the same run, because absolute times differ from machine to machine and from hour to hour.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>
#include <functional>
#include <iostream>

#include "bench/speed/measurements.h"
#include "bench/speed/table.h"

namespace {

using namespace vantamo::bench;
using nlohmann::json;

// Of several runs, the one that is in the middle by a figure.
json middle(const std::string& figure, const std::function<json()>& run, std::size_t times = 3) {
  std::vector<json> runs;
  while (runs.size() < times) runs.push_back(run());
  std::ranges::sort(runs, {}, [&](const json& each) { return each[figure].get<double>(); });
  return runs[times / 2];
}

json calls(const Sink& sink, const HostRun& run) {
  return middle(
      "p50", [&] { return measure(sink, run); }, run.pace == 0 ? 7 : 3);
}

double at(const json& figures, const char* name) { return figures.at(name).get<double>(); }

class Speed {
 public:
  void callsOfAHost() {
    const json burst = calls(silent_, {});
    burst_ = at(burst, "p50");
    rows.push_back({"a call, 50 % within", burst_, "µs", {}, {}, 3});
    rows.push_back({"a call, 50 % within", burst_, "µs", at(burst, "jsonP50"),
                    "18 pairs built and written as JSON", 6});
    rows.push_back({"a call, 99 % within", at(burst, "p99"), "µs", {}, {}, 15});
    const json paced = calls(sink_, {.count = 2000, .pace = 1000});
    rows.push_back({"one call a millisecond, 50 % within", at(paced, "p50"), "µs", {}, {}, 3});
    rows.push_back({"one call a millisecond, 50 % within", at(paced, "p50"), "µs",
                    at(paced, "fileP50"), "18 pairs as JSON, written to a file, one a millisecond",
                    3});
    rows.push_back({"one call a millisecond, 99 % within", at(paced, "p99"), "µs", {}, {}, 15});
    const auto row = [&](const char* what, const json& figures, double goal) {
      rows.push_back({what, at(figures, "p50"), "µs", burst_, "the first row", goal});
    };
    row("a call with 50 attributes", calls(silent_, {.attributes = 50}), 3);
    row("a call while each wait for the disk takes 5 ms more", calls(sink_, {.diskDelay = 5}), 1.3);
    row("a call while the endpoint answers", calls(sink_, {}), 1.3);
    row("a call of one of 8 threads", calls(silent_, {.count = 80'000, .threads = 8}), 3);
  }

  void delivery() {
    constexpr int count = 20'000;
    for (const auto& [posts, goal] : {std::pair{1, 0.7}, {8, 0.6}}) {
      const json host = middle("seconds", [&, posts = posts] {
        return measure(sink_, {.count = count, .delivers = true, .concurrentPosts = posts});
      });
      const json bare =
          middle("seconds", [&, posts = posts] { return measureCurl(sink_, count, posts); });
      const std::string mode = posts == 1 ? "in order" : "8 at a time";
      rows.push_back({"delivered from the first call on, " + mode, count / at(host, "seconds"),
                      "a second", count / at(bare, "seconds"), "libcurl alone", goal, true});
      if (posts == 1) {
        rows.push_back({"processor time for an event", 1e6 * at(host, "cpuSeconds") / count, "µs",
                        1e6 * at(bare, "cpuSeconds") / count, "libcurl alone", 1.6});
        rows.push_back(
            {"memory after 20,000 events", at(host, "memoryKiB") / 1024, "MiB", {}, {}, 4});
        rows.push_back({"of that not shared with other programs",
                        at(host, "memoryAnonKiB") / 1024,
                        "MiB",
                        {},
                        {},
                        4});
        rows.push_back({"memory of libcurl alone", at(bare, "memoryKiB") / 1024, "MiB", {}, {}, 4});
        startup(host, bare);
      }
    }
    const Sink far(std::chrono::milliseconds(50));
    for (const auto& [posts, events] : {std::pair{1, 60}, {8, 400}}) {
      const json host = measure(far, {.count = events, .delivers = true, .concurrentPosts = posts});
      rows.push_back({std::to_string(posts) + " at a time, 50 ms away",
                      (events - posts) / at(host.at("sink"), "seconds"), "a second",
                      static_cast<double>(posts) / 0.05, "requests at a time ÷ round trip", 0.95,
                      true});
    }
  }

  void startup(const json& host, const json& bare) {
    rows.push_back({"first startup", at(host, "startupMs"), "ms", {}, {}, 0.5});
    rows.push_back({"libcurl's own start, of that", at(bare, "startMs"), "ms", {}, {}, 0.5});
    rows.push_back({"later startups", at(host, "nextStartupMs"), "ms", {}, {}, 0.5});
    rows.push_back({"shutdown", at(host, "shutdownMs"), "ms", {}, {}, 2});
    const json idle = measure(sink_, {.count = 10, .idle = 1000});
    rows.push_back({"wake-ups of an idle library in 1 s", at(idle, "wakeUps"), "", {}, {}, 0});
  }

  void backlog() {
    const json some = backlogOf(100);
    const json many = backlogOf(100'000);
    rows.push_back({"a call with a backlog of 100,000", at(many, "p50"), "µs", at(some, "p50"),
                    "with one of 100", 1.1});
    rows.push_back({"delivered of a backlog of 100,000", at(many, "rate"), "a second",
                    at(some, "rate"), "of 100", 0.9, true});
    const json ten = measure(silent_, {.count = 10'000, .idle = 500});
    rows.push_back(
        {"memory with a backlog of 10,000", at(ten, "memoryKiB") / 1024, "MiB", {}, {}, 6});
  }

  json backlogOf(int waiting) {
    const auto run = [&]() -> json {
      const Scratch scratch;
      static_cast<void>(
          measure(silent_, {.count = waiting, .idle = 500, .folder = scratch.path()}));
      const json host = measure(
          silent_, {.count = 2000, .idle = 500, .settling = 1000, .folder = scratch.path()});
      const json drained = measure(sink_, {.count = 0, .delivers = true, .folder = scratch.path()});
      const json& sink = drained.at("sink");
      return {{"p50", host.at("p50")}, {"rate", at(sink, "requests") / at(sink, "seconds")}};
    };
    return middle("rate", run, waiting > 10'000 ? 3 : 5);
  }

  void sizes() {
    rows.push_back({"size added by the module alone", addedKilobytes(1), "kB", {}, {}, 120});
    rows.push_back(
        {"size added by the module and the default core", addedKilobytes(2), "kB", {}, {}, 300});
  }

  void growth() {
    for (const int attributes : {0, 10, 20, 30, 40, 50}) {
      curve("attributes", attributes, calls(silent_, {.attributes = attributes}), "p50");
    }
    for (const int threads : {1, 2, 4, 8}) {
      curve("threads", threads, calls(silent_, {.count = 40'000, .threads = threads}), "p50");
    }
    for (const int waiting : {10, 100, 1000, 10'000, 100'000}) {
      const json figures = backlogOf(waiting);
      curve("backlog", waiting, figures, "p50");
      curve("backlogRate", waiting, figures, "rate");
    }
  }

  std::vector<Row> rows;
  json curves = json::object();

 private:
  void curve(const char* name, int place, const json& figures, const char* figure) {
    curves[name].push_back({place, at(figures, figure)});
  }

  const Sink sink_;
  const Sink silent_{{}, Sink::Answers::never};
  double burst_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Measures the library and prints a table: each figure beside a limit of the same run.\n"
      "About five minutes; exit status 0 whether or not goals are met."};
  std::string file;
  bool curves = false;
  app.add_option("--json", file, "also write the figures to this file");
  app.add_flag("--growth", curves, "measure growth curves too, for the file");
  CLI11_PARSE(app, argc, argv);
  try {
    Speed speed;
    for (const auto part :
         {&Speed::callsOfAHost, &Speed::delivery, &Speed::backlog, &Speed::sizes}) {
      (speed.*part)();
    }
    if (curves) speed.growth();
    print(std::cout, speed.rows);
    if (!file.empty()) {
      std::ofstream out(file);
      out << json{{"rows", asJson(speed.rows)}, {"growth", speed.curves}}.dump(1) << "\n";
      if (!out.flush()) throw std::runtime_error("cannot write " + file);
    }
  } catch (const std::exception& exception) {
    std::cerr << "vantamo_speed: " << exception.what() << "\n";
    return 1;
  }
  return 0;
}
