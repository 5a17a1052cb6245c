#pragma once

#include <optional>
#include <string>

#include "tools/collect/collector.h"
#include "tools/collect/tag_stream.h"

namespace vantamo::tools::collect {

/// One request while it is under way.
struct Request {
  Request(Collector& owner, MHD_Connection* ownConnection, const char* ownMethod,
          const char* ownPath);
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request();

  [[nodiscard]] bool isPost() const { return method == "POST"; }
  [[nodiscard]] std::string_view header(const char* name) const;
  /// A short answer in plain text.
  [[nodiscard]] MHD_Result reply(unsigned status, std::string_view text) const;

  Collector& collector;
  MHD_Connection* const connection;
  const std::string method;
  const std::string path;
  std::string body;
  std::size_t received = 0;
  bool tooLarge = false;
  /// Set once a tag is stored.
  std::optional<Verdict> verdict;
};

/// The largest message of the core.
inline constexpr std::size_t mostBodyBytes = std::size_t{1} << 20U;

/// The stream that a page reads. It waits, taken off the server's loop, while there is nothing new.
class EventProducer final : public Producer {
 public:
  EventProducer(Collector& collector, MHD_Connection* connection, std::string_view lastEventId);
  EventProducer(const EventProducer&) = delete;
  EventProducer& operator=(const EventProducer&) = delete;
  ~EventProducer() override;

  std::string next() override;
  bool waitForMore() override;

  /// Goes on, for something new.
  void wake();
  /// Goes on with a sign of life: only a connection that is written to is found to be gone.
  void beat();

 private:
  Collector& collector_;
  MHD_Connection* const connection_;
  EventStream stream_;
  bool isWaiting_ = false;
  bool mustBeat_ = false;
};

}  // namespace vantamo::tools::collect
