// A guard and not a pragma: binding generators read this header as their main file.
#ifndef VANTAMO_VANTAMO_C_H
#define VANTAMO_VANTAMO_C_H

// NOLINTBEGIN(modernize-*): this is C.
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "vantamo/export.h"

/// @file
/// Vantamo for C11 and for every language that calls C: the facade of vantamo.h, the overrides of
/// platform.h and the default core of default_core.h.
///
///     vantamo_startup();
///     vantamo_page_view home = VANTAMO_INIT(vantamo_page_view);
///     home.pageId = "home";
///     vantamo_fire_page_view(&home);
///     vantamo_shutdown();
///
/// Every function may be called from any thread, and none lets an exception out: a failure is a
/// plain false, null or 0 and a line in the debug log. No function is a cancellation point: a
/// thread that is cancelled in a call ends at the next such point outside the library.
///
/// Strings are UTF-8 and end at their first NUL. A null pointer is an absent string, which is not
/// the same as "".
///
/// Memory. What a `const char *` or a pointer to a const struct points to is lent for the time of
/// one call, in both directions: the library copies what it keeps, and so does a callback. A
/// `char *` that the library hands out is the caller's, who gives it back with vantamo_free(); it
/// is null where the string is absent or there is no memory for it.
///
/// A struct that begins with `size` may grow at its end. The caller writes sizeof of the struct as
/// it was compiled, VANTAMO_INIT does; members past a smaller size are absent, and what this
/// library does not know of a larger one is ignored. A struct that is null, or whose size is that
/// of no version (it holds no member, is no multiple of the struct's alignment, or is beyond 4
/// KiB), is refused, and nothing else of it is looked at. In a struct that the library hands to a
/// callback, `size` is the library's: members past it are not there. Structs without `size` never
/// grow.
///
/// A callback comes with a context, which is passed to each call, and with a `release`, which may
/// be null. The library calls release(context) once, on any thread, when the last call with the
/// context is over and none will follow; also when it did not take the callback. What is in force
/// when the process ends is not released, nor in a forked child what its parent has set. What a
/// callback throws is swallowed. A callback returns: it neither ends its thread (pthread_exit) nor
/// jumps out of itself (longjmp).
#ifdef __cplusplus
extern "C" {
#endif

/// A list of strings. `entries` null: absent. A null entry counts as "".
typedef struct vantamo_list {
  const char* const* entries;  ///< `count` strings; null for an absent list.
  size_t count;                ///< How many.
} vantamo_list;

/// Tells the host that a context is used no more.
typedef void (*vantamo_release)(void* context);

/// Gives back a string that the library has handed out; null is none.
VANTAMO_EXPORT void vantamo_free(char* text);

// --- The facade; what each function does is told in vantamo.h.

/// Starts the library. False when it is running already or when no session could be started.
VANTAMO_EXPORT bool vantamo_startup(void);
/// Begins a new session. False while the library is not running.
VANTAMO_EXPORT bool vantamo_start_new_session(void);
/// Stops the library. Tags already handed to the core stay safe and go out with the next start.
/// False while the library is not running.
VANTAMO_EXPORT bool vantamo_shutdown(void);

/// The 10-digit id of the running session; "" while the library is not running. The caller's.
VANTAMO_EXPORT char* vantamo_session_id(void);
/// The visitor id, kept across restarts; "1000000000000003" in anonymous mode; "" while the library
/// is not running. The caller's.
VANTAMO_EXPORT char* vantamo_visitor_id(void);

/// Hands a copy of the advertising id to the core, which keeps it in memory; null or "" clears it.
/// The core's answer; false when the core throws.
VANTAMO_EXPORT bool vantamo_set_prw_advertising_id(const char* advertisingId);
/// The advertising id, null when none is set or when the core throws. The caller's.
VANTAMO_EXPORT char* vantamo_get_prw_advertising_id(void);

/// "1.1.28". The caller's.
VANTAMO_EXPORT char* vantamo_library_version(void);

/// Sends all later tags under this client id until the next startup. Null or "" loads the
/// configured one. True when a client id is active afterwards.
VANTAMO_EXPORT bool vantamo_activate_client_id(const char* clientId);
/// Makes the configured client id active again. False when none is configured.
VANTAMO_EXPORT bool vantamo_reset_to_default_client_id(void);

/// Sets the mode: "opt_in" (default), "opt_out" (no event is sent), "anonymous" (events carry a
/// fixed visitor id). Anything else opts in and answers false. Forgotten when the process ends.
VANTAMO_EXPORT bool vantamo_set_opt_out(const char* mode);
/// The mode that is set. The caller's.
VANTAMO_EXPORT char* vantamo_get_opt_out(void);

// --- The events. Each answers true when its tag was handed to the core and every value is within
// the documented limits; false does not always mean that nothing is sent (vantamo.h). "Required"
// means present and not empty: the event is refused without it.

/// A page or screen was shown. The first one of a session reports the device as well.
typedef struct vantamo_page_view {
  size_t size;               ///< sizeof of this struct.
  const char* pageId;        ///< Required. The name of the page.
  const char* category;      ///< What the page belongs to.
  const char* searchTerm;    ///< What was searched for, on a page of search results.
  const char* searchResult;  ///< The number of results found, as text; belongs to searchTerm.
  vantamo_list attributes;   ///< What else the app wants to tell.
  vantamo_list vqmmc;        ///< The elements of the marketing code, sent joined with "-_-".
} vantamo_page_view;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_page_view(const vantamo_page_view* event);

/// A product's details were shown.
typedef struct vantamo_product_view {
  size_t size;              ///< sizeof of this struct.
  const char* pageId;       ///< Required.
  const char* productId;    ///< Required.
  const char* productName;  ///< Required.
  const char* category;     ///< What the product belongs to.
  vantamo_list attributes;  ///< What else the app wants to tell.
} vantamo_product_view;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_product_view(const vantamo_product_view* event);

/// A product was put into the cart: one event for each line of the cart.
typedef struct vantamo_shop_action5 {
  size_t size;                ///< sizeof of this struct.
  const char* productId;      ///< Required.
  const char* productName;    ///< Required.
  const char* quantity;       ///< Required. How many, as text.
  const char* baseUnitPrice;  ///< Required. The price of one, in currencyCode, as text.
  const char* category;       ///< What the product belongs to.
  const char* currencyCode;   ///< Required.
  vantamo_list attributes;    ///< What else the app wants to tell.
} vantamo_shop_action5;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_shop_action5(const vantamo_shop_action5* event);

/// A product was bought: one event for each line of a purchase, and one order for the whole.
typedef struct vantamo_shop_action9 {
  size_t size;                ///< sizeof of this struct.
  const char* productId;      ///< Required.
  const char* productName;    ///< Required.
  const char* quantity;       ///< Required. How many, as text.
  const char* baseUnitPrice;  ///< Required. The price of one, in currencyCode, as text.
  const char* category;       ///< What the product belongs to.
  const char* orderId;        ///< Required. The order that the line is part of.
  const char* orderSubTotal;  ///< Required. The whole order without shipping, as text.
  const char* customerId;     ///< Required.
  const char* currencyCode;   ///< Required.
  vantamo_list attributes;    ///< What else the app wants to tell.
} vantamo_shop_action9;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_shop_action9(const vantamo_shop_action9* event);

/// An order was placed.
typedef struct vantamo_order {
  size_t size;                 ///< sizeof of this struct.
  const char* orderId;         ///< Required.
  const char* subtotal;        ///< Required. Without shipping, in currencyCode, as text.
  const char* shippingCharge;  ///< Required. In currencyCode, as text.
  const char* customerId;      ///< Required.
  const char* customerCity;    ///< Where the customer lives.
  const char* customerState;   ///< The state, province or region.
  const char* customerZip;     ///< The postal code.
  const char* currencyCode;    ///< Required.
  vantamo_list attributes;     ///< What else the app wants to tell.
} vantamo_order;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_order(const vantamo_order* event);

/// A customer registered or changed their data.
typedef struct vantamo_registration {
  size_t size;                  ///< sizeof of this struct.
  const char* customerId;       ///< Required.
  const char* email;            ///< Sent as it stands: personal data.
  const char* customerCity;     ///< Where the customer lives.
  const char* customerState;    ///< The state, province or region.
  const char* customerZip;      ///< The postal code.
  const char* customerCountry;  ///< The country; no limit is checked.
  vantamo_list attributes;      ///< What else the app wants to tell.
} vantamo_registration;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_registration(const vantamo_registration* event);

/// An element of a page was used: a menu, a video, a size chart.
typedef struct vantamo_element {
  size_t size;                  ///< sizeof of this struct.
  const char* elementId;        ///< Required.
  const char* elementCategory;  ///< What the element belongs to.
  vantamo_list attributes;      ///< What else the app wants to tell.
} vantamo_element;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_element(const vantamo_element* event);

/// A step of something that the host wants its users to do.
typedef struct vantamo_conversion_event {
  size_t size;                ///< sizeof of this struct.
  const char* eventId;        ///< Required. What is to be done.
  const char* actionType;     ///< Required. "1" when begun, "2" when completed.
  const char* eventCategory;  ///< What the event belongs to.
  const char* eventPoints;    ///< What it is worth to the host, as text.
  vantamo_list attributes;    ///< What else the app wants to tell.
} vantamo_conversion_event;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_conversion_event(const vantamo_conversion_event* event);

/// A link was followed.
typedef struct vantamo_link_click {
  size_t size;           ///< sizeof of this struct.
  const char* pageId;    ///< Where the link stands.
  const char* linkName;  ///< What it is called.
  const char* link;      ///< Required. Where it leads.
} vantamo_link_click;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_link_click(const vantamo_link_click* event);

/// Something was seen on a page.
typedef struct vantamo_impression {
  size_t size;         ///< sizeof of this struct.
  const char* pageId;  ///< Required.
  vantamo_list vqsp;   ///< The elements of the site promotion, sent joined with "-_-".
  vantamo_list vqre;   ///< The elements of the real estate, sent joined with "-_-".
} vantamo_impression;
/// Fires the event.
VANTAMO_EXPORT bool vantamo_fire_impression(const vantamo_impression* event);

// --- The platform overrides

/// Width and height of the main screen in logical points; absent unless `present`.
typedef struct vantamo_screen_size {
  bool present;   ///< Whether the value counts.
  double width;   ///< In logical points.
  double height;  ///< In logical points.
} vantamo_screen_size;

/// Phone or tablet: one of the constants that follow.
typedef int32_t vantamo_device_idiom;
/// The values of vantamo_device_idiom.
enum {
  VANTAMO_DEVICE_IDIOM_ABSENT = 0,  ///< the platform's own answer
  VANTAMO_DEVICE_IDIOM_PHONE = 1,   ///< a phone
  VANTAMO_DEVICE_IDIOM_TABLET = 2   ///< a tablet
};

/// Receives every log message, whole, on the thread that logs. It must not call back into the
/// library. `write` null: absent.
typedef struct vantamo_log_sink {
  void (*write)(void* context, const char* text);  ///< Null: absent.
  void* context;                                   ///< Passed to every call.
  vantamo_release release;                         ///< May be null.
} vantamo_log_sink;

/// What a wrapper around the host application knows better than the operating system's plain
/// interfaces. An absent member leaves the platform's own answer.
typedef struct vantamo_platform_overrides {
  size_t size;                       ///< sizeof of this struct.
  vantamo_device_idiom deviceIdiom;  ///< Default: from the chassis type.
  vantamo_screen_size screenSize;    ///< Default: 0 by 0, as on a machine without one.
  const char* cachesDirectory;       ///< Default: $XDG_CACHE_HOME, else ~/.cache.
  const char* mainBundleFolder;      ///< Default: the folder of the executable.
  const char* systemVersion;         ///< Default: VERSION_ID of os-release.
  vantamo_log_sink logSink;          ///< Default: standard error.
} vantamo_platform_overrides;

/// Puts `overrides` in place of those set before; call it before vantamo_startup(). False, and
/// nothing changed, when the idiom is none of the above.
VANTAMO_EXPORT bool vantamo_set_platform_overrides(const vantamo_platform_overrides* overrides);

// --- The default core: to be called only by a host that links it. More about each function and
// figure is told in default_core.h.

/// A number that is absent unless `present`.
typedef struct vantamo_optional_count {
  bool present;  ///< Whether the value counts.
  size_t count;  ///< How many.
} vantamo_optional_count;

/// A header of a request.
typedef struct vantamo_http_header {
  const char* name;   ///< Without line breaks, as is the value.
  const char* value;  ///< The header's value.
} vantamo_http_header;

/// What a transport sends.
typedef struct vantamo_http_request {
  size_t size;                         ///< sizeof of this struct.
  const char* url;                     ///< The endpoint.
  const vantamo_http_header* headers;  ///< `headerCount` of them.
  size_t headerCount;                  ///< How many headers.
  const char* body;                    ///< Any bytes, `bodyLength` of them.
  size_t bodyLength;                   ///< Bytes of the body.
} vantamo_http_request;

/// What a transport tells.
typedef struct vantamo_http_response {
  size_t size;        ///< sizeof of this struct.
  int32_t status;     ///< The server's final status, 200 and above; 0 when there was no answer.
  const char* error;  ///< Why there was none.
  const char* retryAfter;  ///< The header `Retry-After` as it came.
  const char* date;        ///< The header `Date` as it came.
} vantamo_http_response;

/// The request that a transport is sending, for vantamo_default_core_answer().
typedef struct vantamo_http_exchange vantamo_http_exchange;

/// Sends requests in place of the core's own HTTP client. `post` null: absent.
typedef struct vantamo_transport {
  /// Sends one POST, without following redirects, waits for the answer within time limits of its
  /// own, and tells it with vantamo_default_core_answer() before it returns; otherwise the attempt
  /// counts as one without an answer. Called on the core's thread, one request at a time.
  void (*post)(void* context, const vantamo_http_request* request, vantamo_http_exchange* exchange);
  /// Ends the post that is under way, if there is one, soon and without an answer. Called from any
  /// thread. May be null: then every post takes its time.
  void (*interrupt)(void* context);
  void* context;            ///< Passed to every call.
  vantamo_release release;  ///< May be null.
} vantamo_transport;

/// Tells the answer to the request that a transport is sending, from within its `post` alone. Of
/// several answers the last one counts. False when the response is refused.
VANTAMO_EXPORT bool vantamo_default_core_answer(vantamo_http_exchange* exchange,
                                                const vantamo_http_response* response);

/// The time of day, in place of the system's: milliseconds since 1970-01-01 UTC. It dates messages.
/// Called from any thread. `now` null: absent.
typedef struct vantamo_wall_clock {
  int64_t (*now)(void* context);  ///< Null: absent.
  void* context;                  ///< Passed to every call.
  vantamo_release release;        ///< May be null.
} vantamo_wall_clock;

/// What a host may choose. An absent member leaves the setting of NQCore.bundle, or its default.
typedef struct vantamo_default_core_options {
  size_t size;                                ///< sizeof of this struct.
  const char* queueFolder;                    ///< An absolute path; made when missing.
  vantamo_transport transport;                ///< Default: the core's own HTTP client.
  vantamo_wall_clock wallClock;               ///< Default: the system's.
  const char* certificateFile;                ///< A PEM file, in place of the system's authorities.
  vantamo_optional_count maxQueuedMessages;   ///< 1 to 1,000,000.
  vantamo_optional_count maxQueueBytes;       ///< 65,536 to 1 GiB.
  vantamo_optional_count maxDeadLetters;      ///< 0 to 100,000.
  vantamo_optional_count maxConcurrentPosts;  ///< 1 to 32; more than 1 gives up order.
} vantamo_default_core_options;

/// Takes the options over for the life of the process. False, and nothing changed, once the core
/// was used, or when a member is out of its range.
VANTAMO_EXPORT bool vantamo_default_core_set_options(const vantamo_default_core_options* options);

/// Figures since the process began, except for those of what is kept now.
typedef struct vantamo_default_core_stats {
  size_t size;                 ///< sizeof of this struct.
  int32_t lastStatus;          ///< The last answer's, 0 when there was none.
  uint64_t accepted;           ///< Messages that were taken over; then what has become of messages.
  uint64_t delivered;          ///< The endpoint has answered 2xx.
  uint64_t dead;               ///< The endpoint has refused the message for good.
  uint64_t retried;            ///< Attempts that failed and are repeated, and why.
  uint64_t retriedNetwork;     ///< No answer.
  uint64_t retriedServer;      ///< 3xx, 407, 408, 429 or 5xx.
  uint64_t retriedEndpoint;    ///< 401, 403, 404 or 405.
  uint64_t refused;            ///< Messages that were not taken over, and why.
  uint64_t refusedFull;        ///< The queue is full.
  uint64_t refusedTooLarge;    ///< Larger than 1 MiB.
  uint64_t refusedByStorage;   ///< The disk takes no more.
  uint64_t refusedNotRunning;  ///< The library does not run.
  uint64_t deadLettersDropped;  ///< Gone because there were too many.
  uint64_t queuedMessages;      ///< What is kept now: messages that wait.
  uint64_t queuedBytes;         ///< Bytes of them.
  uint64_t deadLetters;         ///< Dead letters that are kept.
  bool durable;                 ///< False while messages are kept in memory only.
  char* lastError;  ///< The last reason of a failure, null when there was none. The caller's.
} vantamo_default_core_stats;

/// Fills in as many members as stats->size says there are; what was in them is overwritten.
/// False when the struct is refused.
VANTAMO_EXPORT bool vantamo_default_core_get_stats(vantamo_default_core_stats* stats);

/// What has become of an attempt: one of the constants that follow.
typedef int32_t vantamo_outcome;
/// The values of vantamo_outcome.
enum {
  VANTAMO_OUTCOME_DELIVERED = 0,  ///< the endpoint has answered 2xx
  VANTAMO_OUTCOME_RETRYING = 1,   ///< the attempt failed; the message is kept for another one
  VANTAMO_OUTCOME_DEAD = 2        ///< the endpoint refuses this message; it is a dead letter now
};

/// One attempt to deliver a message.
typedef struct vantamo_delivery_report {
  size_t size;     ///< sizeof of this struct.
  const char* id;  ///< The message's random id, sent as `Idempotency-Key` with every attempt.
  const char* moduleName;   ///< The module that it is from.
  vantamo_outcome outcome;  ///< What has become of the attempt.
  int32_t status;           ///< The answer's, 0 when there was none.
  const char* reason;       ///< Why it was not delivered; "" when it was.
} vantamo_delivery_report;

/// Hears of an attempt.
typedef void (*vantamo_delivery_callback)(void* context, const vantamo_delivery_report* report);

/// Calls `callback` after every attempt, on the core's thread and with no lock held: it may call
/// the library; while it runs nothing is sent. Null ends it; a call under way may still be running
/// then. Set before vantamo_startup(), it hears of every attempt.
VANTAMO_EXPORT void vantamo_default_core_set_delivery_callback(vantamo_delivery_callback callback,
                                                               void* context,
                                                               vantamo_release release);

/// Sends what is queued and waits for so many milliseconds at most; true only when nothing is left.
/// Blocks the calling thread: for a program's end or its way to the background.
VANTAMO_EXPORT bool vantamo_default_core_flush(int64_t milliseconds);

/// A message that the endpoint has refused for good. Times in milliseconds since 1970-01-01 UTC.
typedef struct vantamo_dead_letter {
  size_t size;             ///< sizeof of this struct.
  const char* id;          ///< The message's random id.
  const char* moduleName;  ///< The module that it is from.
  const char* body;        ///< Any bytes, `bodyLength` of them.
  size_t bodyLength;       ///< Bytes of the body.
  int32_t status;          ///< The answer's; 0 when the module that it is from was missing.
  const char* reason;      ///< Why it was refused.
  int64_t accepted;        ///< When it was taken over.
  int64_t died;            ///< When it was refused for good.
} vantamo_dead_letter;

/// Calls `visit` on this thread with each dead letter, oldest first, and answers how many there
/// are; 0 when they cannot be read. `visit` null: only counts. This and the next three read or
/// change files, and wait for the core's thread to do so: not for a user interface's thread.
VANTAMO_EXPORT size_t vantamo_default_core_dead_letters(
    void (*visit)(void* context, const vantamo_dead_letter* letter), void* context);
/// Puts the dead letters with these ids back into the queue, behind what waits; `ids` itself null:
/// all of them. A list without entries names none. How many.
VANTAMO_EXPORT size_t vantamo_default_core_replay_dead_letters(const vantamo_list* ids);
/// Erases the dead letters with these ids, named in the same way. How many.
VANTAMO_EXPORT size_t vantamo_default_core_purge_dead_letters(const vantamo_list* ids);

/// For a user's request to be forgotten: erases the queue, the dead letters, the advertising id and
/// the visitor id. True when all was erased.
VANTAMO_EXPORT bool vantamo_default_core_erase_all(void);

#ifdef __cplusplus
}  // extern "C"

/// Begins a struct of which all but the size is absent:
/// `vantamo_order order = VANTAMO_INIT(vantamo_order);`
#define VANTAMO_INIT(type) vantamo_init<type>()
/// What VANTAMO_INIT stands for.
template <class Struct>
constexpr Struct vantamo_init() noexcept {
  Struct made{};
  made.size = sizeof(Struct);
  return made;
}
#else
/// Begins a struct of which all but the size is absent:
/// `vantamo_order order = VANTAMO_INIT(vantamo_order);`
#define VANTAMO_INIT(type) \
  { .size = sizeof(type) }

/// A pointer to a struct with these members, which lives as long as the block around it:
/// `vantamo_fire_element(VANTAMO_WITH(vantamo_element, .elementId = "menu"));`
#define VANTAMO_WITH(type, ...) (&(type){.size = sizeof(type), __VA_ARGS__})

/// A list of these strings, for the same time: `.attributes = VANTAMO_LIST("red", "42")`
#define VANTAMO_LIST(...)                                        \
  ((vantamo_list){.entries = (const char* const[]){__VA_ARGS__}, \
                  .count = sizeof((const char* const[]){__VA_ARGS__}) / sizeof(const char*)})
#endif
// NOLINTEND(modernize-*)

#endif  // VANTAMO_VANTAMO_C_H
