#include "tools/collect/request.h"

#include <utility>

namespace vantamo::tools::collect {

Request::Request(Collector& owner, MHD_Connection* ownConnection, const char* ownMethod,
                 const char* ownPath)
    : collector(owner), connection(ownConnection), method(ownMethod), path(ownPath) {
  if (isPost()) ++collector.posting_;
}

Request::~Request() {
  collector.uploading_ -= body.size();
  if (isPost()) --collector.posting_;
}

std::string_view Request::header(const char* name) const {
  const char* value = ::MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value == nullptr ? std::string_view() : value;
}

MHD_Result Request::reply(unsigned status, std::string_view text) const {
  return queue(connection, status, textResponse(text, "text/plain; charset=utf-8"));
}

EventProducer::EventProducer(Collector& collector, MHD_Connection* connection,
                             std::string_view lastEventId)
    : collector_(collector),
      connection_(connection),
      stream_({.store = collector.store_,
               .run = collector.run_,
               .faults = collector.faults_,
               .faultsVersion = collector.faultsVersion_},
              lastEventId) {
  collector_.pages_.insert(this);
}

EventProducer::~EventProducer() { collector_.pages_.erase(this); }

std::string EventProducer::next() {
  std::string text = stream_.next();
  if (text.empty() && mustBeat_) text = ":\n\n";
  mustBeat_ = false;
  return text;
}

bool EventProducer::waitForMore() {
  if (collector_.stopping_) return false;
  ::MHD_suspend_connection(connection_);
  isWaiting_ = true;
  return true;
}

void EventProducer::wake() {
  if (std::exchange(isWaiting_, false)) ::MHD_resume_connection(connection_);
}

void EventProducer::beat() {
  mustBeat_ = true;
  wake();
}

}  // namespace vantamo::tools::collect
