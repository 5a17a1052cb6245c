#include "tags/vt_tag.h"

#include "state/vt_mod_session.h"
#include "support/utf.h"

using vantamo::Text;

namespace {

void appendPair(std::string& tag, std::string_view key, Text value) {
  tag.append(key).append("=");
  tag += vantamo::support::wellFormedUtf8(value.present() ? value.view()
                                                          : vantamo::tags::absentPrinted);
}

}  // namespace

VTTag VTTag::tagWith(Text applicationName, Text clientId) { return {applicationName, clientId}; }

void VTTag::add(std::string_view key, Text value) {
  if (!partial_.empty()) partial_ += '&';
  appendPair(partial_, key, value);
}

std::string VTTag::makeAttributeStringFrom(vantamo::TextList attributes, int tid) {
  std::string text;
  vantamo::tags::forEachAttribute(attributes, tid, [&text](std::string_view key, Text value) {
    text += '&';
    appendPair(text, key, value);
  });
  return text;
}

std::string VTTag::buildFinalTag(std::string_view partialTag) {
  const VTModSession& session = VTModSession::sharedInstance();
  std::string tag;
  appendPair(tag, "ci", clientId());
  appendPair(tag.append("&vn2=e4.0&"), "st", vantamo::tags::sendTimeText());
  tag.append("&vn1=4.1.8&ec=UTF-8&").append(partialTag);
  if (partialTag.find("&ul=") == std::string_view::npos) {
    appendPair(tag.append("&"), "ul", vantamo::tags::locationText(applicationName(), nullptr));
  }
  appendPair(tag.append("&cjen=1&"), "cjuid", session.visitorId());
  appendPair(tag.append("&"), "cjsid", session.cjsid());
  tag_ = tag.append("&cjvf=1");
  return tag_;
}

std::string VTTag::sha1From(Text text) { return "&ha1=" + vantamo::tags::digestOf(text); }

std::vector<std::string> VTTag::arrayFromAttributesString(Text text) {
  return vantamo::tags::split(text);
}
