#pragma once

#include <optional>
#include <string>

#include "state/vt_tags_ring_buffer.h"
#include "tags/event_formats.h"
#include "tags/event_writer.h"

namespace vantamo::tags {

/// What both tag builders share: the two names that go into every tag, and the event operations.
/// Each operation writes the event and then the envelope; the answer is always true.
///
/// A Builder is an EventSink with `start()` (before the event) and `finish()` (the envelope). One
/// builder serves one event, on one thread.
template <class Builder>
class TagOperations {
 public:
  /// The host application's name, part of `ul`; absent prints "(null)" there.
  [[nodiscard]] const std::optional<std::string>& applicationName() const {
    return applicationName_;
  }
  void setApplicationName(Text name) { applicationName_ = name.copy(); }
  /// The account's client id, sent as `ci`.
  [[nodiscard]] const std::optional<std::string>& clientId() const { return clientId_; }
  void setClientId(Text clientId) { clientId_ = clientId.copy(); }

  /// The first page view of a session becomes its technical-properties tag.
  bool makePageViewTag(const JoinedPageView& event) {
    if (VTTagsRingBuffer::sharedInstance().firstPageView()) {
      return makeTechnicalPropertiesTag(event);
    }
    return make(joinedPageViewFormat, event);
  }
  bool makeTechnicalPropertiesTag(const JoinedPageView& event) {
    write(technicalPropertiesFormat, event);
    VTTagsRingBuffer::sharedInstance().setFirstPageView(false);
    builder().finish();
    return true;
  }
  bool makeProductViewTag(const ProductView& event) { return make(productViewFormat, event); }
  bool makeShopAction5Tag(const ShopAction5& event) { return make(shopAction5Format, event); }
  bool makeShopAction9Tag(const ShopAction9& event) { return make(shopAction9Format, event); }
  bool makeOrderTag(const Order& event) { return make(orderFormat, event); }
  bool makeRegistrationTag(const Registration& event) { return make(registrationFormat, event); }
  bool makeElementTag(const Element& event) { return make(elementFormat, event); }
  bool makeConversionEventTag(const ConversionEvent& event) {
    return make(conversionEventFormat, event);
  }
  bool makeLinkClickTag(const LinkClick& event) { return make(linkClickFormat, event); }
  bool makeImpressionTag(const JoinedImpression& event) {
    return make(joinedImpressionFormat, event);
  }

  /// The list's elements joined with "-_-"; "" for an absent or empty list.
  [[nodiscard]] static std::string stringFromAttributesArray(TextList attributes) {
    return joined(attributes);
  }

 private:
  friend Builder;
  TagOperations() = default;
  TagOperations(Text applicationName, Text clientId)
      : applicationName_(applicationName.copy()), clientId_(clientId.copy()) {}

  Builder& builder() { return static_cast<Builder&>(*this); }

  template <class Event>
  void write(const EventFormat<Event>& format, const Event& event) {
    builder().start();
    writeEvent(format, event, applicationName_, builder());
  }
  template <class Event>
  bool make(const EventFormat<Event>& format, const Event& event) {
    write(format, event);
    builder().finish();
    return true;
  }

  std::optional<std::string> applicationName_;
  std::optional<std::string> clientId_;
};

}  // namespace vantamo::tags
