#include "tags/vt_tag_dictionary.h"

#include "state/vt_mod_session.h"
#include "support/json.h"
#include "support/utf.h"

using vantamo::Text;
using vantamo::Value;
using vantamo::tags::locationKey;

VTTagDictionary VTTagDictionary::tagWithApplicationName(Text applicationName, Text clientId) {
  return {applicationName, clientId};
}

Value::Map VTTagDictionary::tagDict() const {
  return map_ ? *map_ : vantamo::support::parseJson(json_.text()).map();
}

void VTTagDictionary::setTagDict(Value::Map tagDict) { map_ = std::move(tagDict); }

std::string VTTagDictionary::json() && {
  return map_ ? vantamo::support::writeJson(*map_) : std::move(json_).text();
}

void VTTagDictionary::add(std::string_view key, Text value) {
  if (finished_ && !map_) map_ = tagDict();
  if (map_ && value.present()) {
    map_->set(key, vantamo::support::wellFormedUtf8(value.view()));
  } else if (map_) {
    map_->erase(key);
  } else if (value.present()) {
    json_.add(key, value.view());
    locationAdded_ = locationAdded_ || key == locationKey;
  }
}

bool VTTagDictionary::hasLocation() const {
  return map_ ? !map_->stringAt(locationKey).value_or("").empty() : locationAdded_;
}

Value::Map VTTagDictionary::attributesDictionaryFrom(vantamo::TextList attributes, int tid) {
  VTTagDictionary builder;
  vantamo::tags::forEachAttribute(
      attributes, tid, [&builder](std::string_view key, Text value) { builder.add(key, value); });
  return builder.tagDictionary();
}

void VTTagDictionary::buildFinalDictionary() {
  const VTModSession& session = VTModSession::sharedInstance();
  const std::string sendTime = vantamo::tags::sendTimeText();
  add("ci", clientId());
  add("vn2", "e4.0");
  add("st", sendTime);
  add("vn1", "4.1.8");
  add("ec", "UTF-8");
  add("cjen", "1");
  add("cjuid", session.visitorId());
  add("cjsid", session.cjsid());
  add("cjvf", "1");
  if (!hasLocation()) {
    add(locationKey, vantamo::tags::locationText(applicationName(), nullptr));
  }
  finished_ = true;
}

std::string VTTagDictionary::sha1From(Text text) { return vantamo::tags::digestOf(text); }
