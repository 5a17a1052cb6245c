#include "tools/collect/envelope.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "tags/event_writer.h"
#include "tools/collect/problems.h"

namespace vantamo::tools::collect {
namespace {

enum class Kind { any, constant, time, digits, tenDigits, location };

struct EnvelopeKey {
  std::string_view key;
  std::string_view meaning;
  Kind kind;
  std::string_view constant = {};
  bool mayBeAbsent = false;
};

constexpr std::array<EnvelopeKey, 10> envelope = {{
    {"ci", "client id", Kind::any, "", true},
    {"vn2", "tag format", Kind::constant, "e4.0"},
    {"st", "when the tag was built", Kind::time},
    {"vn1", "library format", Kind::constant, "4.1.8"},
    {"ec", "encoding", Kind::constant, "UTF-8"},
    {"ul", "application and marketing code", Kind::location},
    {"cjen", "always 1", Kind::constant, "1"},
    {"cjuid", "visitor id", Kind::digits},
    {"cjsid", "session id", Kind::tenDigits},
    {"cjvf", "always 1", Kind::constant, "1"},
}};

bool isDigits(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

void checkTime(std::string_view text, double now, Problems& problems) {
  constexpr double day = 86400;
  double seconds = 0;
  std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (!isTime(text)) {
    problems.add("st", "st must be whole seconds since 1970, not " + quotedShort(text));
  } else if (seconds > now + day) {
    problems.add("st", "st (when the tag was built) is more than a day ahead: the clock is wrong");
  }
}

void checkLocation(std::string_view text, bool hasMarketingCode, Problems& problems) {
  constexpr std::string_view beginning = "APP_APPLE_";
  if (!text.starts_with(beginning)) {
    problems.add("ul", "ul must begin with APP_APPLE_, not " + quotedShort(text));
    return;
  }
  const std::size_t code = text.find("/?vq_mmc=");
  const std::string_view name =
      text.substr(beginning.size(), std::min(code, text.size()) - beginning.size());
  if (name == tags::absentPrinted) {
    problems.add("ul", "ul has no application name: AppName is not set in the settings");
  } else if (name.empty()) {
    problems.add("ul", "ul has an empty application name");
  }
  if (code != std::string_view::npos && !hasMarketingCode) {
    problems.add("ul", "ul holds a marketing code, which only firePageView has");
  }
}

}  // namespace

bool isTime(std::string_view text) {
  return isDigits(text) && text.size() >= 9 && text.size() <= 11;
}

std::string_view envelopeMeaning(std::string_view key) {
  const auto* const row = std::ranges::find(envelope, key, &EnvelopeKey::key);
  return row == envelope.end() ? std::string_view() : row->meaning;
}

void checkEnvelope(const Value::Map& tag, bool hasMarketingCode, double now, Problems& problems) {
  for (const EnvelopeKey& row : envelope) {
    const std::string key(row.key);
    const Value* value = tag.find(key);
    const std::string what = key + " (" + std::string(row.meaning) + ")";
    if (value == nullptr) {
      if (!row.mayBeAbsent) problems.add(key, what + " is missing; it is in every tag");
      continue;
    }
    if (!value->isString()) continue;  // told for all keys alike
    const std::string& text = value->string();
    const bool isOk = row.kind != Kind::constant || text == row.constant;
    if (!isOk) {
      problems.add(key,
                   key + " must be " + std::string(row.constant) + ", not " + quotedShort(text));
    } else if (row.kind == Kind::time) {
      checkTime(text, now, problems);
    } else if (row.kind == Kind::location) {
      checkLocation(text, hasMarketingCode, problems);
    } else if (row.kind == Kind::digits && !isDigits(text)) {
      problems.add(key, what + " must be digits, not " + quotedShort(text));
    } else if (row.kind == Kind::tenDigits && !(isDigits(text) && text.size() == 10)) {
      problems.add(key, what + " must be 10 digits, not " + quotedShort(text));
    } else if (row.kind == Kind::any && text.empty()) {
      problems.add(key, what + " is empty");
    }
  }
}

}  // namespace vantamo::tools::collect
