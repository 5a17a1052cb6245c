#include "tags/vt_tag_dictionary.h"

#include "state/vt_mod_session.h"
#include "support/utf.h"

using vantamo::Text;
using vantamo::Value;

VTTagDictionary VTTagDictionary::tagWithApplicationName(Text applicationName, Text clientId) {
  return {applicationName, clientId};
}

void VTTagDictionary::add(std::string_view key, Text value) {
  if (value.present()) {
    tagDict_.set(key, vantamo::support::wellFormedUtf8(value.view()));
  } else {
    tagDict_.erase(key);
  }
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
  if (tagDict_.stringAt("ul").value_or("").empty()) {
    add("ul", vantamo::tags::locationText(applicationName(), nullptr));
  }
}

std::string VTTagDictionary::sha1From(Text text) { return vantamo::tags::digestOf(text); }
