// What the sender does with one message after the other, as long as it may.

#include <algorithm>
#include <utility>

#include "cores/default/exchange.h"
#include "cores/default/queue_store.h"
#include "cores/default/sender.h"

namespace vantamo::core {
namespace {

using default_core::HttpResponse;
using default_core::Outcome;
using default_core::Transport;
using std::chrono::milliseconds;

constexpr const char* operation = "-[NQCore sendQueuedMessages]";

// Whatever a host's transport throws is an attempt without an answer.
HttpResponse postGuarded(Transport& transport, const default_core::HttpRequest& request) {
  HttpResponse response;
  try {
    response = transport.post(request);
  } catch (const std::exception& exception) {
    response.error = exception.what();
  } catch (...) {
    response.error = "the transport failed";
  }
  if (response.status == 0 && response.error.empty()) response.error = "no answer";
  return response;
}

std::string describe(const HttpResponse& response) {
  return response.status != 0 ? "status " + std::to_string(response.status) : response.error;
}

// A host's transport sends one request at a time. Whatever it throws is an attempt without an
// answer.
void exchange(Transport& transport, RequestSource& source, std::size_t most) {
  if (auto* parallel = dynamic_cast<ParallelTransport*>(&transport)) {
    return parallel->exchange(source, most);
  }
  while (const auto request = source.next()) {
    source.answered(request->number, postGuarded(transport, request->content));
  }
}

}  // namespace

// What is sent in one step.
class Sender::Round final : public RequestSource {
 public:
  Round(Sender& sender, MessageQueue& queue, std::uint64_t newest,
        std::vector<default_core::DeliveryReport>* reports, Step& step)
      : sender_(sender),
        queue_(queue),
        step_(step),
        reports_(reports),
        newest_(newest),
        end_(sender.parts_.now() + longest) {}

  // What cannot be read or noted ends the round; what is under way is still waited for.
  std::optional<Request> next() override {
    try {
      return nextOrNone();
    } catch (const std::exception& exception) {
      stop(sender_.stopForStorage(exception));
      return {};
    }
  }

  void answered(std::size_t number, HttpResponse response) override {
    const auto attempt = std::ranges::find(underWay_, number, &Attempt::number);
    if (attempt == underWay_.end()) return;
    Conclusion conclusion = std::move(attempt->conclusion);
    underWay_.erase(attempt);
    try {
      conclude(conclusion, response);
    } catch (const std::exception& exception) {
      stop(sender_.stopForStorage(exception));
    }
  }

  // Whether another step finds something to do at once.
  [[nodiscard]] bool hasMore() const { return !stopped_ && (concluded_ > 0 || endedEarly_); }

 private:
  struct Attempt {
    std::size_t number = 0;
    Conclusion conclusion;
  };

  // While messages come in, they are taken in that often.
  static constexpr milliseconds longest{100};

  std::optional<Request> nextOrNone() {
    for (;;) {
      if (stopped_ || isTimeToEnd()) return {};
      const QueuedMessage* message = queue_.at(underWay_.size());
      if (message == nullptr || !sender_.mayAttempt(*message, queue_.run(), underWay_.empty())) {
        return {};
      }
      Conclusion conclusion{{message->id, message->moduleName, Outcome::retrying, 0, {}},
                            Verdict::delivered,
                            message->body.size(),
                            0};
      if (const char* reason = flawOf(*message)) {
        conclusion.report.reason = reason;
        bury(conclusion);
        continue;
      }
      auto request = sender_.parts_.requestFor(*message);
      if (!request) return {};
      underWay_.push_back({++begun_, std::move(conclusion)});
      return Request{begun_, *std::move(request)};
    }
  }

  [[nodiscard]] bool isTimeToEnd() {
    const bool isNews = queue_.newestOrdinal() != newest_ && sender_.parts_.now() >= end_;
    const bool isReported =
        reports_ != nullptr && concluded_ + underWay_.size() >= sender_.concurrentPosts_;
    endedEarly_ = endedEarly_ || isNews || isReported || sender_.cutShort_;
    return endedEarly_;
  }

  // Why a message can never be sent. It would hold up all those behind it.
  [[nodiscard]] const char* flawOf(const QueuedMessage& message) const {
    if (!isMessageId(message.id) || message.body.size() > largestMessage) {
      return "what is stored is not a message";
    }
    const auto& hasModule = sender_.parts_.hasModule;
    return hasModule && !hasModule(message.moduleName) ? "there is no module of its name" : nullptr;
  }

  void conclude(Conclusion& conclusion, const HttpResponse& response) {
    default_core::DeliveryReport& report = conclusion.report;
    report.status = response.status;
    conclusion.verdict = judge(response.status);
    if (conclusion.verdict == Verdict::delivered) {
      queue_.delivered(report.id);
      report.outcome = Outcome::delivered;
      if (!stopped_) sender_.succeeded();
      return tell(conclusion);
    }
    report.reason = describe(response);
    if (conclusion.verdict == Verdict::messageWrong) return bury(conclusion);
    failed(conclusion.verdict, response);
    tell(conclusion);
    sender_.failureLog_.log(operation, sender_.parts_.now(), [&] {
      return support::withValues("Message %@ not delivered, kept for another attempt: %@",
                                 report.id, report.reason);
    });
  }

  void failed(Verdict verdict, const HttpResponse& response) {
    std::optional<milliseconds> asked;
    if (verdict == Verdict::serverFailed) {
      asked = retryAfter(response, sender_.parts_.wallClock());
    }
    if (stopped_) return stop(sender_.failedToo(asked));
    const Reason reason = verdict == Verdict::networkFailed   ? Reason::network
                          : verdict == Verdict::endpointWrong ? Reason::endpoint
                                                              : Reason::server;
    stop(sender_.failed(reason, asked));
  }

  void bury(Conclusion& conclusion) {
    conclusion.verdict = Verdict::messageWrong;
    conclusion.report.outcome = Outcome::dead;
    conclusion.deadLettersDropped = sender_.bury(queue_, conclusion.report);
    if (!stopped_) sender_.succeeded();
    tell(conclusion);
  }

  void tell(const Conclusion& conclusion) {
    ++concluded_;
    if (sender_.parts_.concluded) sender_.parts_.concluded(conclusion);
    if (reports_ != nullptr) reports_->push_back(conclusion.report);
  }

  void stop(TimePoint until) {
    stopped_ = true;
    step_.next = until;
  }

  Sender& sender_;
  MessageQueue& queue_;
  Step& step_;
  std::vector<default_core::DeliveryReport>* const reports_;
  const std::uint64_t newest_;  // that was taken in
  const TimePoint end_;
  std::vector<Attempt> underWay_;  // of the oldest messages, in their order
  std::size_t begun_ = 0;
  std::size_t concluded_ = 0;
  bool stopped_ = false;
  bool endedEarly_ = false;
};

void Sender::sendRound(MessageQueue& queue, Transport& transport, std::uint64_t newest,
                       std::vector<default_core::DeliveryReport>* reports, Step& step) {
  Round round(*this, queue, newest, reports, step);
  try {
    exchange(transport, round, concurrentPosts_);
    if (round.hasMore()) step.next = parts_.now();
  } catch (const std::exception& exception) {
    step.next = stopForStorage(exception);
  }
}

std::size_t Sender::bury(MessageQueue& queue, const default_core::DeliveryReport& report) {
  DeadLetterBounds bounds;
  {
    const platform::MutexLock lock(mutex_);
    bounds = deadLetterBounds_;
  }
  const std::size_t dropped =
      queue.bury(report.id, report.status, report.reason, wallMilliseconds(), bounds);
  failureLog_.log(operation, parts_.now(), [&] {
    return support::withValues("Message %@ is refused for good: %@", report.id, report.reason);
  });
  return dropped;
}

}  // namespace vantamo::core
