// What the collector answers to each request.

#include <stdexcept>

#include "platform/clock.h"
#include "support/json.h"
#include "tools/collect/page.h"
#include "tools/collect/request.h"

namespace vantamo::tools::collect {
namespace {

constexpr std::string_view jsonType = "application/json";

constexpr unsigned ok = 200;
constexpr unsigned badRequest = 400;
constexpr unsigned forbidden = 403;
constexpr unsigned notFound = 404;
constexpr unsigned methodNotAllowed = 405;
constexpr unsigned tooLarge = 413;
constexpr unsigned tooManyPages = 503;

constexpr std::size_t mostPages = 64;

// The stored tags that a filter takes, a line each.
class TagLines final : public Producer {
 public:
  TagLines(const TagStore& store, TagFilter filter)
      : store_(store), filter_(std::move(filter)), last_(store.lastSequence()) {}

  std::string next() override {
    constexpr std::size_t enough = 65'536;
    std::string lines;
    while (lines.size() < enough) {
      const Tag tag = store_.firstAfter(filter_.since);
      if (tag == nullptr || tag->sequence > last_) break;
      filter_.since = tag->sequence;
      if (filter_.takes(*tag)) lines.append(tag->json).append("\n");
    }
    return lines;
  }
  bool waitForMore() override { return false; }

 private:
  const TagStore& store_;
  TagFilter filter_;
  const std::uint64_t last_;
};

}  // namespace

RequestOrigin Collector::originOf(const Request& request) const {
  return {.host = request.header("Host"),
          .origin = request.header("Origin"),
          .fetchSite = request.header("Sec-Fetch-Site"),
          .contentType = request.header("Content-Type"),
          .hasBody = request.received > 0};
}

MHD_Result Collector::answer(Request& request) {
  if (request.verdict) return sendVerdict(request);  // it was held back
  const bool isControl = request.path == "/reset" || request.path == "/faults";
  const RequestOrigin origin = originOf(request);
  const bool onLoopback = listener_.onLoopback;
  if (request.isPost() && !isControl) {
    const std::string refusal = refusalToPost(origin, machineName_, onLoopback);
    return refusal.empty() ? answerTag(request) : request.reply(forbidden, refusal);
  }
  const std::string refusal = request.isPost() ? refusalToChange(origin, machineName_, onLoopback)
                                               : refusalToRead(origin, machineName_, onLoopback);
  if (!refusal.empty()) return request.reply(forbidden, refusal);
  if (request.method == "GET" || request.method == "HEAD") return answerGet(request);
  if (!request.isPost()) return request.reply(methodNotAllowed, "tags come with POST\n");
  return request.path == "/reset" ? answerReset(request) : answerFaults(request);
}

MHD_Result Collector::answerGet(Request& request) {
  if (const auto file = pageFile(request.path)) {
    return queue(request.connection, ok, textResponse(file->content, file->type));
  }
  if (request.path == "/events") return openEvents(request);
  if (request.path == "/tags") return sendTags(request);
  if (request.path == "/faults") {
    const std::string faults = support::writeJson(faultsAsMembers(faults_)) + "\n";
    return queue(request.connection, ok, textResponse(faults, jsonType));
  }
  if (request.path == "/health") {
    return queue(request.connection, ok, textResponse(health(), jsonType));
  }
  return request.reply(notFound, "nothing is here; tags are posted to " + postUrl() + "\n");
}

std::string Collector::health() const {
  return support::writeJson(
             Value::Map{{"status", "ok"},
                        {"tags", static_cast<std::int64_t>(store_.tags().size())},
                        {"lastSequence", static_cast<std::int64_t>(store_.lastSequence())},
                        {"dropped", static_cast<std::int64_t>(store_.dropped())},
                        {"pages", static_cast<std::int64_t>(pages_.size())}}) +
         "\n";
}

MHD_Result Collector::openEvents(Request& request) {
  if (pages_.size() >= mostPages) {
    return request.reply(tooManyPages, "too many pages are open\n");
  }
  auto producer =
      std::make_unique<EventProducer>(*this, request.connection, request.header("Last-Event-ID"));
  return queue(request.connection, ok,
               streamedResponse(std::move(producer), "text/event-stream; charset=utf-8"));
}

MHD_Result Collector::sendTags(Request& request) {
  try {
    TagFilter filter = filterOf(valuesOf(request.connection, MHD_GET_ARGUMENT_KIND));
    return queue(request.connection, ok,
                 streamedResponse(std::make_unique<TagLines>(store_, std::move(filter)),
                                  "application/x-ndjson; charset=utf-8"));
  } catch (const std::invalid_argument& error) {
    return request.reply(badRequest, std::string(error.what()) + "\n");
  }
}

// Whatever was stored is answered as delivered, also when something is wrong with it: that is told
// on the page, and the application under test must not bury it as refused.
MHD_Result Collector::answerTag(Request& request) {
  // After the end nobody looks at it any more: without an answer, its sender keeps it.
  if (stopping_) return MHD_NO;
  request.verdict = verdictOf(faults_, options_.draw());
  if (request.tooLarge && request.verdict->delivers()) request.verdict->status = tooLarge;
  constexpr double perSecond = 1000;
  Post post{.path = request.path,
            .headers = valuesOf(request.connection, MHD_HEADER_KIND),
            .received = static_cast<std::int64_t>(platform::secondsSince1970() * perSecond),
            .tooLarge = request.tooLarge};
  uploading_ -= request.body.size();
  post.body = std::exchange(request.body, {});
  store_.add(std::move(post), *request.verdict);
  wakePages();
  if (request.verdict->delay.count() == 0) return sendVerdict(request);
  ::MHD_suspend_connection(request.connection);
  held_.emplace(Clock::now() + request.verdict->delay, request.connection);
  return MHD_YES;
}

MHD_Result Collector::sendVerdict(Request& request) {
  const Verdict& verdict = *request.verdict;
  if (verdict.refused) return MHD_NO;
  const Response response = textResponse("", "text/plain");
  if (verdict.retryAfter) addHeader(response, "Retry-After", std::to_string(*verdict.retryAfter));
  return queue(request.connection, static_cast<unsigned>(verdict.status), response);
}

MHD_Result Collector::answerReset(Request& request) {
  store_.reset();
  wakePages();
  return queue(request.connection, ok, textResponse("{}\n", jsonType));
}

MHD_Result Collector::answerFaults(Request& request) {
  try {
    const Value members = support::parseJson(request.body);
    if (!members.isMap()) throw BadFault("the faults must be a JSON object");
    faults_ = changed(faults_, members.map());
  } catch (const BadFault& error) {
    return request.reply(badRequest, std::string(error.what()) + "\n");
  } catch (const support::JsonError& error) {
    return request.reply(badRequest, std::string(error.what()) + "\n");
  }
  ++faultsVersion_;
  wakePages();
  const std::string faults = support::writeJson(faultsAsMembers(faults_)) + "\n";
  return queue(request.connection, ok, textResponse(faults, jsonType));
}

}  // namespace vantamo::tools::collect
