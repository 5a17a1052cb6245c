// The default core for C. Each struct of default_core.h is taken apart or put together whole: one
// that gains a member does not compile here until the C struct has it as well.

#include <cstddef>

#include "support/c_interface.h"
#include "vantamo/default_core.h"
#include "vantamo/vantamo_c.h"

namespace core = vantamo::default_core;
namespace support = vantamo::support;
using std::chrono::milliseconds;
using std::chrono::system_clock;

// The answer that the transport has told so far.
struct vantamo_http_exchange {
  core::HttpResponse response;
};

namespace {

// As for the overrides: no padding at the end, where a later member would count as a known one.
static_assert(offsetof(vantamo_default_core_options, maxConcurrentPosts) +
                  sizeof(vantamo_optional_count) ==
              sizeof(vantamo_default_core_options));
static_assert(offsetof(vantamo_http_response, date) + sizeof(const char*) ==
              sizeof(vantamo_http_response));
static_assert(offsetof(vantamo_default_core_stats, lastError) + sizeof(char*) ==
              sizeof(vantamo_default_core_stats));

class CTransport final : public core::Transport {
 public:
  CTransport(const vantamo_transport& given, std::shared_ptr<void> context)
      : given_(given), context_(std::move(context)) {}

  core::HttpResponse post(const core::HttpRequest& request) override {
    const auto& [url, headers, body] = request;
    std::vector<vantamo_http_header> views;
    views.reserve(headers.size());
    for (const auto& [name, value] : headers) views.push_back({name.c_str(), value.c_str()});
    const vantamo_http_request view{.size = sizeof(view),
                                    .url = url.c_str(),
                                    .headers = views.data(),
                                    .headerCount = views.size(),
                                    .body = body.data(),
                                    .bodyLength = body.size()};
    vantamo_http_exchange exchange{
        {.status = 0, .error = "the transport has told no answer", .retryAfter = {}, .date = {}}};
    given_.post(context_.get(), &view, &exchange);
    return std::move(exchange.response);
  }

  void interrupt() noexcept override {
    if (given_.interrupt == nullptr) return;
    support::calledFromC("interrupt", 0, [&](int&) { given_.interrupt(context_.get()); });
  }

 private:
  const vantamo_transport given_;
  const std::shared_ptr<void> context_;
};

std::optional<std::size_t> taken(const vantamo_optional_count& number) {
  return number.present ? std::optional(number.count) : std::nullopt;
}

// Both ends are within what system_clock can tell.
system_clock::time_point timeOf(std::int64_t sinceEpoch) {
  const auto utmost = std::chrono::duration_cast<milliseconds>(system_clock::duration::max());
  return system_clock::time_point(std::clamp(milliseconds(sinceEpoch), -utmost, utmost));
}

std::int64_t sinceEpoch(system_clock::time_point time) {
  return std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
}

core::Options taken(const vantamo_default_core_options& given) {
  const auto& [size, givenFolder, givenTransport, givenClock, givenCertificates, givenMessages,
               givenBytes, givenDead, givenPosts] = given;
  const auto transportContext =
      support::ownedContext(givenTransport.context, givenTransport.release);
  const auto clockContext = support::ownedContext(givenClock.context, givenClock.release);
  core::Options options;
  auto& [queueFolder, transport, wallClock, certificateFile, maxQueuedMessages, maxQueueBytes,
         maxDeadLetters, maxConcurrentPosts] = options;
  queueFolder = support::copied(givenFolder);
  if (givenTransport.post != nullptr) {
    transport = std::make_shared<CTransport>(givenTransport, transportContext);
  }
  if (givenClock.now != nullptr) {
    wallClock = [now = givenClock.now, clockContext] { return timeOf(now(clockContext.get())); };
  }
  certificateFile = support::copied(givenCertificates);
  maxQueuedMessages = taken(givenMessages);
  maxQueueBytes = taken(givenBytes);
  maxDeadLetters = taken(givenDead);
  maxConcurrentPosts = taken(givenPosts);
  return options;
}

vantamo_default_core_stats given(const core::Stats& stats) {
  const auto& [accepted, delivered, dead, retried, retriedNetwork, retriedServer, retriedEndpoint,
               refused, refusedFull, refusedTooLarge, refusedByStorage, refusedNotRunning,
               deadLettersDropped, queuedMessages, queuedBytes, deadLetters, durable, lastStatus,
               lastError] = stats;
  return {.size = 0,
          .lastStatus = lastStatus,
          .accepted = accepted,
          .delivered = delivered,
          .dead = dead,
          .retried = retried,
          .retriedNetwork = retriedNetwork,
          .retriedServer = retriedServer,
          .retriedEndpoint = retriedEndpoint,
          .refused = refused,
          .refusedFull = refusedFull,
          .refusedTooLarge = refusedTooLarge,
          .refusedByStorage = refusedByStorage,
          .refusedNotRunning = refusedNotRunning,
          .deadLettersDropped = deadLettersDropped,
          .queuedMessages = queuedMessages,
          .queuedBytes = queuedBytes,
          .deadLetters = deadLetters,
          .durable = durable,
          .lastError = nullptr};
}

static_assert(VANTAMO_OUTCOME_DELIVERED == static_cast<int>(core::Outcome::delivered));
static_assert(VANTAMO_OUTCOME_RETRYING == static_cast<int>(core::Outcome::retrying));
static_assert(VANTAMO_OUTCOME_DEAD == static_cast<int>(core::Outcome::dead));

// A view of the report.
vantamo_delivery_report lent(const core::DeliveryReport& report) {
  const auto& [id, moduleName, outcome, status, reason] = report;
  return {.size = sizeof(vantamo_delivery_report),
          .id = id.c_str(),
          .moduleName = moduleName.c_str(),
          .outcome = static_cast<vantamo_outcome>(outcome),
          .status = status,
          .reason = reason.c_str()};
}

// A view of the letter.
vantamo_dead_letter lent(const core::DeadLetter& letter) {
  const auto& [id, moduleName, body, status, reason, accepted, died] = letter;
  return {.size = sizeof(vantamo_dead_letter),
          .id = id.c_str(),
          .moduleName = moduleName.c_str(),
          .body = body.c_str(),
          .bodyLength = body.size(),
          .status = status,
          .reason = reason.c_str(),
          .accepted = sinceEpoch(accepted),
          .died = sinceEpoch(died)};
}

using Ids = std::optional<std::vector<std::string>>;

std::size_t change(const char* operation, std::size_t (*make)(const Ids&),
                   const vantamo_list* given) {
  return support::calledFromC(operation, std::size_t{0}, [&](std::size_t& result) {
    if (given == nullptr) {
      result = make(std::nullopt);
      return;
    }
    std::vector<std::string> ids;
    for (std::size_t i = 0; given->entries != nullptr && i < given->count; ++i) {
      ids.emplace_back(given->entries[i] == nullptr ? "" : given->entries[i]);
    }
    result = make(ids);
  });
}

}  // namespace

bool vantamo_default_core_answer(vantamo_http_exchange* exchange,
                                 const vantamo_http_response* response) {
  constexpr const char* operation = "vantamo_default_core_answer";
  return support::calledFromC(operation, false, [&](bool& result) {
    const auto known = support::knownPart(operation, response);
    if (!known) return;
    if (exchange == nullptr) {
      support::debugLog(operation, [] { return "The exchange is null"; });
      return;
    }
    const auto& [size, givenStatus, givenError, givenRetryAfter, givenDate] = *known;
    core::HttpResponse told;
    auto& [status, error, retryAfter, date] = told;
    status = givenStatus;
    error = support::copied(givenError).value_or("");
    retryAfter = support::copied(givenRetryAfter);
    date = support::copied(givenDate);
    exchange->response = std::move(told);
    result = true;
  });
}

bool vantamo_default_core_set_options(const vantamo_default_core_options* options) {
  constexpr const char* operation = "vantamo_default_core_set_options";
  return support::calledFromC(operation, false, [&](bool& result) {
    if (const auto known = support::knownPart(operation, options)) {
      result = core::setOptions(taken(*known));
    }
  });
}

bool vantamo_default_core_get_stats(vantamo_default_core_stats* stats) {
  constexpr const char* operation = "vantamo_default_core_get_stats";
  return support::calledFromC(operation, false, [&](bool& result) {
    if (!support::isUsable(operation, stats)) return;
    const core::Stats figures = core::stats();
    vantamo_default_core_stats filled = given(figures);
    filled.size = stats->size;
    // Only who can see a string can give it back.
    const bool showsError = filled.size >= offsetof(vantamo_default_core_stats, lastError) +
                                               sizeof(vantamo_default_core_stats::lastError);
    if (showsError && !figures.lastError.empty()) {
      filled.lastError = support::handedOut(figures.lastError);
    }
    std::memcpy(stats, &filled, std::min(filled.size, sizeof(filled)));
    result = true;
  });
}

void vantamo_default_core_set_delivery_callback(vantamo_delivery_callback callback, void* context,
                                                vantamo_release release) {
  support::calledFromC("vantamo_default_core_set_delivery_callback", 0, [&](int&) {
    const auto owned = support::ownedContext(context, release);
    if (callback == nullptr) return core::setDeliveryCallback(nullptr);
    core::setDeliveryCallback([callback, owned](const core::DeliveryReport& report) {
      const vantamo_delivery_report view = lent(report);
      callback(owned.get(), &view);
    });
  });
}

bool vantamo_default_core_flush(int64_t deadline) {
  return support::calledFromC("vantamo_default_core_flush", false,
                              [&](bool& result) { result = core::flush(milliseconds(deadline)); });
}

size_t vantamo_default_core_dead_letters(void (*visit)(void* context, const vantamo_dead_letter*),
                                         void* context) {
  return support::calledFromC("vantamo_default_core_dead_letters", std::size_t{0},
                              [&](std::size_t& result) {
                                const auto letters = core::deadLetters();
                                result = letters.size();
                                for (const core::DeadLetter& letter : letters) {
                                  const vantamo_dead_letter view = lent(letter);
                                  if (visit != nullptr) visit(context, &view);
                                }
                              });
}

size_t vantamo_default_core_replay_dead_letters(const vantamo_list* ids) {
  return change("vantamo_default_core_replay_dead_letters", &core::replayDeadLetters, ids);
}

size_t vantamo_default_core_purge_dead_letters(const vantamo_list* ids) {
  return change("vantamo_default_core_purge_dead_letters", &core::purgeDeadLetters, ids);
}

bool vantamo_default_core_erase_all() {
  return support::calledFromC("vantamo_default_core_erase_all", false,
                              [](bool& result) { result = core::eraseAll(); });
}
