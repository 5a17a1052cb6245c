#include "tools/collect/session_book.h"

#include "tools/collect/problems.h"

namespace vantamo::tools::collect {
namespace {

// An id; nothing for one that is longer than any that the core makes, which is not kept.
std::string_view idAt(const TagReading& reading, std::string_view key) {
  constexpr std::size_t longest = 64;
  const std::string_view id = reading.text(key);
  return id.size() > longest ? std::string_view() : id;
}

}  // namespace

std::vector<Problem> SessionBook::enter(const TagReading& reading, std::uint64_t sequence) {
  std::vector<Problem> problems;
  const std::string id(idAt(reading, "cjsid"));
  if (id.empty()) return problems;
  if (sessions_.size() >= mostSessions) sessions_.clear();
  Session& session = sessions_[id];
  const std::string_view visitor = idAt(reading, "cjuid");
  if (!visitor.empty() && visitor != anonymousVisitorId) {
    if (session.visitor.empty()) {
      session.visitor = visitor;
    } else if (session.visitor != visitor) {
      problems.push_back({"cjsid", "two sessions with one id: " + quotedShort(id) +
                                       " was visitor " + quotedShort(session.visitor) + " before"});
    }
  }
  if (reading.event != nullptr && reading.event->technicalProperties) {
    if (session.technicalProperties != 0) {
      problems.push_back({"cjsid", "two sessions with one id: " + quotedShort(id) +
                                       " had its technical properties in tag " +
                                       std::to_string(session.technicalProperties) + " already"});
    } else {
      session.technicalProperties = sequence;
    }
  }
  return problems;
}

}  // namespace vantamo::tools::collect
