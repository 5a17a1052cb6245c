#include "tools/collect/tag_store.h"

#include <strings.h>

#include <algorithm>

#include "support/json.h"
#include "support/utf.h"
#include "tools/collect/replay_line.h"
#include "tools/plain_text.h"

namespace vantamo::tools::collect {
namespace {

constexpr std::string_view idempotencyKey = "Idempotency-Key";

// Of a body that is no tag, as much as anybody reads.
constexpr std::size_t mostRawBytes = 16'384;

Value headersValue(const Post& post) {
  Value::List headers;
  for (const auto& [name, value] : post.headers) headers.push_back(Value::List{name, value});
  return headers;
}

Value meaningsOf(const TagReading& reading) {
  std::vector<Value::Map::Entry> meanings;
  for (const auto& [key, value] : reading.tag) {
    std::string meaning = meaningOf(reading.event, key);
    if (!meaning.empty()) meanings.push_back({key, std::move(meaning)});
  }
  return Value::Map::fromEntries(std::move(meanings));
}

Value problemsValue(const std::vector<Problem>& problems) {
  Value::List list;
  for (const Problem& problem : problems) {
    list.push_back(Value::Map{{"key", problem.key}, {"text", problem.text}});
  }
  return list;
}

Value numberOrNull(const std::optional<std::uint64_t>& number) {
  return number ? Value(static_cast<std::int64_t>(*number)) : Value();
}

std::string recordOf(const StoredTag& tag, const Post& post, const Verdict& verdict) {
  const TagReading& reading = tag.reading;
  const bool isTag = !reading.tag.empty();
  const auto call = replayCall(reading);
  return support::writeJson(Value::Map{
      {"sequence", static_cast<std::int64_t>(tag.sequence)},
      {"received", isoTime(post.received)},
      {"event", std::string(reading.eventName())},
      {"technicalProperties", reading.event != nullptr && reading.event->technicalProperties},
      {"session", std::string(reading.text("cjsid"))},
      {"visitor", std::string(reading.text("cjuid"))},
      {"anonymous", reading.text("cjuid") == anonymousVisitorId},
      {"client", std::string(reading.text("ci"))},
      {"problems", problemsValue(tag.problems)},
      {"repeatOf", numberOrNull(tag.repeatOf)},
      {"answer", verdict.refused ? Value() : Value(verdict.status)},
      {"fault", verdict.words.empty() ? Value() : Value(verdict.words)},
      {"path", post.path},
      {"headers", headersValue(post)},
      {"body", isTag ? Value(reading.tag) : Value()},
      {"raw",
       isTag ? Value()
             : Value(support::wellFormedUtf8(std::string_view(post.body).substr(0, mostRawBytes)))},
      {"meanings", meaningsOf(reading)},
      {"replay", call ? Value(support::writeJson(*call)) : Value()}});
}

std::size_t bytesOf(const StoredTag& tag) {
  return tag.json.size() + tag.reading.values * sizeof(Value);
}

}  // namespace

std::string_view Post::header(std::string_view name) const {
  const auto found = std::ranges::find_if(headers, [name](const auto& header) {
    return header.first.size() == name.size() &&
           ::strncasecmp(header.first.data(), name.data(), name.size()) == 0;
  });
  return found == headers.end() ? std::string_view() : found->second;
}

Tag TagStore::add(Post post, const Verdict& verdict) {
  const auto tag = std::make_shared<StoredTag>();
  tag->sequence = ++last_;
  if (post.tooLarge) {
    tag->problems.push_back({"", "the body is larger than 1 MiB, which no message is"});
  } else {
    tag->reading = readTag(post.body, static_cast<double>(post.received) / 1000);
    tag->problems = tag->reading.problems;
  }
  const std::string key(post.header(idempotencyKey));
  Message once;
  Message& message = key.empty() ? once : messages_[key];
  if (message.first == 0) {
    message.first = last_;
    if (!key.empty()) keys_[last_] = key;
    message.ofSession = sessions_.enter(tag->reading, last_);
  } else {
    tag->repeatOf = message.first;
  }
  tag->problems.insert(tag->problems.end(), message.ofSession.begin(), message.ofSession.end());
  tag->counts = verdict.delivers() && !message.delivered;
  message.delivered = message.delivered || verdict.delivers();
  tag->json = recordOf(*tag, post, verdict);
  tag->headers = std::move(post.headers);
  tags_.push_back(tag);
  bytes_ += bytesOf(*tag);
  while (tags_.size() > 1 && (tags_.size() > mostTags || bytes_ > mostBytes)) dropOldest();
  if (observer_ != nullptr) observer_->stored(tag);
  return tag;
}

void TagStore::dropOldest() {
  const Tag& oldest = tags_.front();
  if (const auto key = keys_.find(oldest->sequence); key != keys_.end()) {
    messages_.erase(key->second);
    keys_.erase(key);
  }
  bytes_ -= bytesOf(*oldest);
  tags_.pop_front();
  ++dropped_;
}

void TagStore::reset() {
  tags_.clear();
  sessions_.clear();
  messages_.clear();
  keys_.clear();
  bytes_ = 0;
  dropped_ = 0;
  resetAt_ = ++last_;
  if (observer_ != nullptr) observer_->wasReset();
}

Tag TagStore::firstAfter(std::uint64_t sequence) const {
  if (tags_.empty() || sequence >= last_) return nullptr;
  const std::uint64_t oldest = tags_.front()->sequence;
  // Less than what is kept, and so in range of any size.
  return tags_[sequence < oldest ? 0 : static_cast<std::size_t>(sequence - oldest + 1)];
}

}  // namespace vantamo::tools::collect
