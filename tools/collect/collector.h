#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "tools/collect/faults.h"
#include "tools/collect/http.h"
#include "tools/collect/listener.h"
#include "tools/collect/request_guard.h"
#include "tools/collect/tag_store.h"

namespace vantamo::tools::collect {

struct CollectorOptions {
  /// An IPv4 or IPv6 address. Beyond loopback, whoever reaches the port can read what tags carry.
  std::string address = "127.0.0.1";
  /// 0 takes a free one.
  int port = 8135;
  Faults faults;
  /// Random numbers from 0 up to, not including, 100: which tags a failure hits.
  std::function<double()> draw;
};

class EventProducer;
struct Request;

/// The inspector's server: receives tags, serves the page and its events, and the requests of
/// scripts. All of it happens on the one thread that is in `run`; nothing waits there, so that
/// thousands of idle connections cost a descriptor and some memory each.
///
///   Collector collector({.port = 0});
///   std::cout << collector.url();
///   collector.run([&] { return collector.store().lastSequence() >= 10; });
class Collector {
 public:
  using Clock = std::chrono::steady_clock;

  /// Listens from here on. Throws std::runtime_error when it cannot.
  explicit Collector(CollectorOptions options);
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;
  ~Collector();

  /// The page's address, as "http://127.0.0.1:8135/".
  [[nodiscard]] std::string url() const;
  /// Where a settings file points to.
  [[nodiscard]] std::string postUrl() const { return url() + "collect"; }
  [[nodiscard]] const Listener& listener() const { return listener_; }
  /// To be touched only on the thread of `run`, or while none is in it.
  [[nodiscard]] TagStore& store() { return store_; }

  /// Serves until `isOver` (asked after whatever happens), `deadline` or `stop`, then answers what
  /// is being posted. May be called again.
  void run(const std::function<bool()>& isOver, std::optional<Clock::time_point> deadline = {});
  /// Ends `run`. From any thread, and from a signal handler.
  void stop() noexcept;

 private:
  friend class EventProducer;
  friend struct Request;

  static MHD_Result handle(void* self, MHD_Connection* connection, const char* path,
                           const char* method, const char* version, const char* data,
                           std::size_t* size, void** request);
  static void completed(void* self, MHD_Connection* connection, void** request,
                        MHD_RequestTerminationCode code);

  MHD_Result proceed(Request& request, const char* data, std::size_t* size);
  void takeIn(Request& request, std::string_view data);
  MHD_Result answer(Request& request);
  MHD_Result answerGet(Request& request);
  MHD_Result answerTag(Request& request);
  MHD_Result answerReset(Request& request);
  MHD_Result answerFaults(Request& request);
  MHD_Result openEvents(Request& request);
  MHD_Result sendTags(Request& request);
  MHD_Result sendVerdict(Request& request);
  [[nodiscard]] std::string health() const;
  [[nodiscard]] RequestOrigin originOf(const Request& request) const;

  void startDaemon();
  void serveOnce(Clock::time_point until);
  void resumeDue(Clock::time_point now);
  void wakePages();

  const CollectorOptions options_;
  const std::string run_;  // this run, for pages that come back after another one
  const std::string machineName_;
  Faults faults_;
  unsigned faultsVersion_ = 1;
  TagStore store_;
  Listener listener_;
  Descriptor wakeUp_;
  std::set<EventProducer*> pages_;
  std::multimap<Clock::time_point, MHD_Connection*> held_;
  Clock::time_point nextBeat_;
  std::size_t posting_ = 0;
  std::size_t uploading_ = 0;
  bool stopping_ = false;
  Daemon daemon_;  // the last one: its end calls into the others
};

}  // namespace vantamo::tools::collect
