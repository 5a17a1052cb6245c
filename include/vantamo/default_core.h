#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vantamo/export.h"
#include "vantamo/transport.h"

/// What a host can see of the default core and do with it beyond the core contract. Link
/// Vantamo::default_core. Everything here is safe from any thread, and nothing that derives from
/// std::exception leaves it.
///
///     vantamo::default_core::setOptions({.maxQueuedMessages = 500});  // before the first startup
///     Vantamo::startup();
///     ...
///     if (!vantamo::default_core::flush(std::chrono::seconds(2))) { /* goes out next time */ }
namespace vantamo::default_core {

/// What a host may choose. An absent member leaves the setting of NQCore.bundle, or its default.
struct Options {
  /// The folder of the queue, an absolute path; made when missing, for this user only. Absent:
  /// `CACHES/NQCore/` and the ApplicationId, or the executable's name.
  std::optional<std::string> queueFolder{};
  /// Sends the requests in place of the core's own HTTP client.
  std::shared_ptr<Transport> transport{};
  /// The time of day, in place of the system's. It dates messages; no wait depends on it.
  std::function<std::chrono::system_clock::time_point()> wallClock{};
  /// A PEM file of the certificate authorities that the core's HTTP client trusts, in place of the
  /// system's.
  std::optional<std::string> certificateFile{};
  /// Most messages that may wait, 1 to 1,000,000.
  std::optional<std::size_t> maxQueuedMessages{};
  /// Most bytes of messages that may wait, 65,536 to 1 GiB.
  std::optional<std::size_t> maxQueueBytes{};
  /// Most dead letters that are kept, 0 to 100,000, and never more bytes of them than of the queue;
  /// the oldest go first.
  std::optional<std::size_t> maxDeadLetters{};
  /// Most requests under way at a time, 1 to 32, for the core's HTTP client. 1 keeps the order of
  /// events on the wire; more give it up for a rate of up to so many in a round trip.
  std::optional<std::size_t> maxConcurrentPosts{};
};

/// Takes the options over for the life of the process; a forked child sets them again. False, and
/// nothing changed, once the core was used (by a startup or by any other operation here but
/// setDeliveryCallback and stats), or when a number is out of its range.
VANTAMO_EXPORT bool setOptions(Options options);

/// Figures since the process began, except for those of what is kept now.
struct Stats {
  /// Messages that were taken over, and what has become of messages, those of earlier runs
  /// included.
  std::uint64_t accepted = 0;
  std::uint64_t delivered = 0;  ///< Answered 2xx.
  std::uint64_t dead = 0;       ///< Refused for good by the endpoint.
  /// Attempts that failed and are repeated; the next three tell why.
  std::uint64_t retried = 0;
  std::uint64_t retriedNetwork = 0;   ///< There was no answer.
  std::uint64_t retriedServer = 0;    ///< A server has answered 3xx, 407, 408, 429 or 5xx.
  std::uint64_t retriedEndpoint = 0;  ///< An endpoint has answered 401, 403, 404 or 405.
  /// Messages that were not taken over; the next four tell why.
  std::uint64_t refused = 0;
  std::uint64_t refusedFull = 0;        ///< The queue is full.
  std::uint64_t refusedTooLarge = 0;    ///< Larger than 1 MiB.
  std::uint64_t refusedByStorage = 0;   ///< The disk takes no more.
  std::uint64_t refusedNotRunning = 0;  ///< The library does not run.
  /// Dead letters that had to go because there were too many.
  std::uint64_t deadLettersDropped = 0;

  /// What waits now. Messages of earlier runs are counted a moment after the startup.
  std::size_t queuedMessages = 0;
  std::size_t queuedBytes = 0;  ///< Of the bodies of what waits.
  std::size_t deadLetters = 0;  ///< How many are kept now.
  /// False while messages are kept in memory only, because no file can be used.
  bool durable = false;

  int lastStatus = 0;     ///< The last answer's status; 0 when there was none.
  std::string lastError;  ///< The last reason of a failure; "" when there was none.
};
/// What the core has done and has to do. Waits for neither disk nor network, and starts nothing.
[[nodiscard]] VANTAMO_EXPORT Stats stats();

/// What an attempt has led to.
enum class Outcome {
  delivered,  ///< the endpoint has answered 2xx
  retrying,   ///< the attempt failed; the message is kept for another one
  dead,       ///< the endpoint refuses this message; it is among the dead letters
};

/// What the delivery callback hears of an attempt.
struct DeliveryReport {
  /// The message's random id, sent as `Idempotency-Key` with every attempt.
  std::string id;
  std::string moduleName;  ///< The module that has posted it: "VTMod" for every event.
  Outcome outcome = Outcome::delivered;  ///< What becomes of the message.
  /// The answer's status, 0 when there was none.
  int status = 0;
  /// Why it was not delivered; "" when it was.
  std::string reason;
};

/// Calls `callback` after every attempt, on the core's thread and with no lock held: it may call
/// the library. What it throws is logged and goes no further; while it runs nothing is sent. An
/// empty function ends it; a call under way may still be running then. It is asked for before the
/// core sends what there is: set it before the first startup to hear of all attempts.
VANTAMO_EXPORT void setDeliveryCallback(std::function<void(const DeliveryReport&)> callback);

/// Sends what is queued, with ManualPostEnabled too, and waits until nothing is left or the
/// deadline, counted from now, is over. True only when nothing is left. A pending retry is tried at
/// once, unless the server has asked for the wait. Works after Vantamo::shutdown() too; while the
/// library was never started nothing is sent and the answer comes at once, as it does in a delivery
/// callback. Blocks the calling thread: for a program's end or its way to the background.
VANTAMO_EXPORT bool flush(std::chrono::milliseconds deadline);

/// A message that the endpoint has refused for good (a 4xx answer that speaks of the message).
struct DeadLetter {
  std::string id;          ///< As in a DeliveryReport.
  std::string moduleName;  ///< The module that has posted it.
  std::string body;        ///< The tag, as it was sent.
  int status = 0;          ///< The answer's status; 0 when its module was missing.
  std::string reason;      ///< Why it is dead.
  std::chrono::system_clock::time_point accepted;  ///< When the core took it over.
  std::chrono::system_clock::time_point died;      ///< When it was given up.
};

/// The dead letters, oldest first; none when they cannot be read. This and the next three read or
/// change files, and wait for the core's thread to do so: not for a user interface's thread.
[[nodiscard]] VANTAMO_EXPORT std::vector<DeadLetter> deadLetters();
/// Puts the dead letters with these ids, or all of them, back into the queue, behind what waits.
/// How many.
VANTAMO_EXPORT std::size_t replayDeadLetters(
    const std::optional<std::vector<std::string>>& ids = {});
/// Erases the dead letters with these ids, or all of them. How many.
VANTAMO_EXPORT std::size_t purgeDeadLetters(
    const std::optional<std::vector<std::string>>& ids = {});

/// For a user's request to be forgotten: erases the queue, the dead letters, files that were set
/// aside, the advertising id, and through the modules the visitor id; the next event is that of a
/// new visitor. A request that is under way is given up; it may have arrived. True when all was
/// erased; false when something could not be, or belongs to another running process of the
/// application, or the core's thread did not come to it within 10 s. Asked for by a transport in a
/// request, it is done after that, and the answer is false.
VANTAMO_EXPORT bool eraseAll();

}  // namespace vantamo::default_core
