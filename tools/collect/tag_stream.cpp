#include "tools/collect/tag_stream.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "support/json.h"
#include "tools/collect/problems.h"

namespace vantamo::tools::collect {
namespace {

// So much is made at a time.
constexpr std::size_t enoughBytes = 65'536;

std::optional<std::uint64_t> numberOf(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole ? std::optional(number) : std::nullopt;
}

std::string eventText(std::string_view name, std::string_view id, std::string_view data) {
  std::string text = "event: ";
  text += name;
  if (!id.empty()) text.append("\nid: ").append(id);
  return text.append("\ndata: ").append(data).append("\n\n");
}

}  // namespace

bool TagFilter::takes(const StoredTag& tag) const {
  const TagReading& reading = tag.reading;
  return (event.empty() || reading.eventName() == event) &&
         (session.empty() || reading.text("cjsid") == session) &&
         std::ranges::all_of(members, [&](const auto& member) {
           return reading.tag.stringAt(member.first) == std::string_view(member.second);
         });
}

TagFilter filterOf(const std::vector<std::pair<std::string, std::string>>& query) {
  constexpr std::size_t most = 32;  // each is looked for in every tag
  if (query.size() > most) throw std::invalid_argument("more than 32 filters");
  TagFilter filter;
  for (const auto& [name, value] : query) {
    if (name == "event") {
      if (!isEventName(value)) throw std::invalid_argument("no event " + quotedShort(value));
      filter.event = value;
    } else if (name == "session") {
      filter.session = value;
    } else if (name == "since") {
      const auto number = numberOf(value);
      if (!number) {
        throw std::invalid_argument("since must be a sequence number, not " + quotedShort(value));
      }
      filter.since = *number;
    } else {
      filter.members.emplace_back(name, value);
    }
  }
  return filter;
}

EventStream::EventStream(StreamState state, std::string_view lastEventId) : state_(state) {
  const std::size_t dash = lastEventId.rfind('-');
  const bool isOfThisRun =
      dash != std::string_view::npos && lastEventId.substr(0, dash) == state.run;
  if (isOfThisRun) {
    seen_ =
        std::min(numberOf(lastEventId.substr(dash + 1)).value_or(0), state.store.lastSequence());
  }
  mustReset_ = !lastEventId.empty() && !isOfThisRun;
}

std::string EventStream::next() {
  const TagStore& store = state_.store;
  std::string text;
  if (!greeted_) text = "retry: 1000\n\n";
  greeted_ = true;
  if (mustReset_ || seen_ < store.resetAt()) {
    // Also for a new page: it has nothing to forget.
    seen_ = mustReset_ ? store.resetAt() : std::max(seen_, store.resetAt());
    text += eventText("reset", state_.run + "-" + std::to_string(seen_), "{}");
    droppedSeen_ = 0;
    mustReset_ = false;
  }
  if (faultsSeen_ != state_.faultsVersion) {
    faultsSeen_ = state_.faultsVersion;
    text += eventText("faults", "", support::writeJson(faultsAsMembers(state_.faults)));
  }
  if (droppedSeen_ != store.dropped() && !store.tags().empty()) {
    droppedSeen_ = store.dropped();
    text += eventText("dropped", "",
                      R"({"count":)" + std::to_string(droppedSeen_) + R"(,"oldest":)" +
                          std::to_string(store.tags().front()->sequence) + "}");
  }
  while (text.size() < enoughBytes) {
    const Tag tag = store.firstAfter(seen_);
    if (tag == nullptr) break;
    seen_ = tag->sequence;
    text += eventText("tag", state_.run + "-" + std::to_string(seen_), tag->json);
  }
  return text;
}

}  // namespace vantamo::tools::collect
