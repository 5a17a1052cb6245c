#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/collect/tag_check.h"

namespace vantamo::tools::collect {

/// Remembers what the tags of each session had in common, and finds two sessions with one id: the
/// same session id with another visitor id, or with technical properties a second time. A session
/// that turns to anonymous counting and back is one session; a visitor whose data was erased gets a
/// new session too.
class SessionBook {
 public:
  /// What is wrong between this tag and those before it. A tag that is posted again must not come
  /// here twice.
  [[nodiscard]] std::vector<Problem> enter(const TagReading& reading, std::uint64_t sequence);
  void clear() { sessions_.clear(); }

 private:
  struct Session {
    std::string visitor;
    std::uint64_t technicalProperties = 0;
  };
  // Beyond so many it begins anew: nobody looks at so many sessions.
  static constexpr std::size_t mostSessions = 20'000;

  std::map<std::string, Session, std::less<>> sessions_;
};

}  // namespace vantamo::tools::collect
