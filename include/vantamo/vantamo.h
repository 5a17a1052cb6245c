#pragma once

#include <optional>
#include <string>

#include "vantamo/events.h"
#include "vantamo/export.h"
#include "vantamo/text.h"
#include "vantamo/version.h"

/// The client analytics library as a host application sees it.
///
///     Vantamo::startup();
///     Vantamo::firePageView({.pageId = "home", .category = "start"});
///     Vantamo::fireProductview({.pageId = "p", .productId = "sku-1", .productName = "Shoe"});
///     Vantamo::shutdown();
///
/// Every operation is static, may be called from any thread, and returns at once: nothing here
/// waits for the network. No exception derived from std::exception leaves an operation (the two
/// advertising-id operations excepted); a failure is a plain false or "" and a line in the debug
/// log, which is on while the environment variable VANTAMO_DEBUG holds a number greater than 0.
///
/// The settings come from `VTMod.bundle/settings.json` in the main bundle (docs/settings.md).
class VANTAMO_EXPORT Vantamo {
 public:
  Vantamo() = delete;

  /// Starts the library: reads the settings, starts a session, watches the posting host. False when
  /// it is running already or when no session could be started (see the debug log).
  static bool startup();
  /// Begins a new session: new session id, same visitor id; its first page view reports the
  /// device's technical properties. False while the library is not running.
  static bool startNewSession();
  /// Stops the library. Tags already handed to the core stay safe and go out with the next start.
  /// False while the library is not running.
  static bool shutdown();

  /// The 10-digit id of the running session; "" while the library is not running.
  static std::string sessionId();
  /// The visitor id, kept across restarts; "1000000000000003" in anonymous mode; "" while the
  /// library is not running.
  static std::string visitorId();

  /// Hands a copy of the advertising id to the core, which keeps it in memory; absent or empty
  /// clears it. The core's answer; exceptions of the core pass through.
  static bool setPRWAdvertisingId(vantamo::Text advertisingId);
  /// The advertising id, absent when none is set. Exceptions of the core pass through.
  static std::optional<std::string> getPRWAdvertisingId();

  /// "1.1.28".
  static std::string libraryVersion();

  /// Sends all later tags under this client id until the next startup. Absent or empty loads the
  /// configured one. True when a client id is active afterwards.
  static bool activateClientId(vantamo::Text clientId);
  /// Makes the configured client id active again. False when none is configured.
  static bool resetToDefaultClientId();

  /// Sets the mode: "opt_in" (default), "opt_out" (no event is sent), "anonymous" (events carry a
  /// fixed visitor id). Anything else opts in and answers false. Forgotten when the process ends.
  static bool setOptOut(vantamo::Text mode);

  /// The mode that is set.
  static std::string getOptOut();

  // The events. Each answers true when its tag was handed to the core and every value is within the
  // documented limits. False does not always mean that nothing is sent: a tag over a limit has
  // still gone out, and one that waits for the network in the buffer of 10 goes with the next
  // event. An event without one of its required arguments, and every event while the library is not
  // running or the user has opted out, is not sent at all.

  /// A page or screen was shown.
  static bool firePageView(const vantamo::PageView& event);
  /// A product's details were shown.
  static bool fireProductview(const vantamo::ProductView& event);
  /// A product was put into the cart.
  static bool fireShopAction5(const vantamo::ShopAction5& event);
  /// A product was bought.
  static bool fireShopAction9(const vantamo::ShopAction9& event);
  /// An order was placed.
  static bool fireOrder(const vantamo::Order& event);
  /// A customer registered or changed their data.
  static bool fireRegistration(const vantamo::Registration& event);
  /// An element of a page was used.
  static bool fireElement(const vantamo::Element& event);
  /// A step of a conversion was made.
  static bool fireConversionEvent(const vantamo::ConversionEvent& event);
  /// A link was followed.
  static bool fireLinkClick(const vantamo::LinkClick& event);
  /// Something was seen on a page.
  static bool fireImpression(const vantamo::Impression& event);
};
