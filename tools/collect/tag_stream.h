#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/collect/tag_store.h"

namespace vantamo::tools::collect {

/// Which tags are asked for. Empty members ask for all.
struct TagFilter {
  std::string event;
  std::string session;
  std::uint64_t since = 0;
  /// Wire keys and the values that they must have.
  std::vector<std::pair<std::string, std::string>> members;

  [[nodiscard]] bool takes(const StoredTag& tag) const;
};

/// A query's parameters as a filter. Throws std::invalid_argument, naming the parameter.
[[nodiscard]] TagFilter filterOf(const std::vector<std::pair<std::string, std::string>>& query);

/// What the stream tells of the whole, besides the tags.
struct StreamState {
  const TagStore& store;
  /// Tells this run of the inspector from an earlier one.
  const std::string& run;
  const Faults& faults;
  /// Counts the changes of the faults, from 1.
  const unsigned& faultsVersion;
};

/// What a page has seen so far, and what it is to be sent next. It holds no tags of its own: one
/// that reads slowly costs nothing, and is told how many it has missed.
class EventStream {
 public:
  /// `lastEventId` is what a page that comes back has seen: "run-sequence"; empty for a new one.
  EventStream(StreamState state, std::string_view lastEventId);

  /// The next server-sent events; empty when there is nothing new.
  [[nodiscard]] std::string next();

 private:
  StreamState state_;
  std::uint64_t seen_ = 0;
  unsigned faultsSeen_ = 0;
  std::uint64_t droppedSeen_ = 0;
  bool greeted_ = false;
  bool mustReset_ = false;
};

}  // namespace vantamo::tools::collect
