#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/speed/sink.h"

namespace vantamo::bench {

/// A host that is to be measured. Each run has a process and, unless `folder` names one, a folder
/// of its own.
struct HostRun {
  int count = 20'000;
  int attributes = 1;
  int threads = 1;
  /// Microseconds from event to event.
  int pace = 0;
  /// Whether the host waits until all is delivered.
  bool delivers = false;
  int concurrentPosts = 1;
  /// Milliseconds that each wait for the disk takes more.
  int diskDelay = 0;
  int idle = 100;
  /// Milliseconds from the startup to the first event.
  int settling = 0;
  std::string folder = {};
};

/// What the host tells of itself, and under "sink" what has arrived. Throws when it fails, or when
/// something that was to be delivered has not arrived, or not once.
[[nodiscard]] nlohmann::json measure(const Sink& sink, const HostRun& run);
/// libcurl alone: so many posts, so many at a time.
[[nodiscard]] nlohmann::json measureCurl(const Sink& sink, int count, int parallel);
/// The size of the stripped program with the library (1 module, 2 default core) over that without.
[[nodiscard]] double addedKilobytes(int library);

/// A folder that is gone at the end.
class Scratch {
 public:
  Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch();

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  const std::string path_;
};

}  // namespace vantamo::bench
