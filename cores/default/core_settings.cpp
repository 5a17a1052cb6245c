#include "cores/default/core_settings.h"

#include <algorithm>
#include <cmath>

namespace vantamo::core {
namespace {

using std::chrono::milliseconds;

constexpr std::string_view fileName = "NQCore.bundle/settings.json: ";

// Reads items one by one; whatever cannot be taken becomes a complaint.
class ItemReader {
 public:
  ItemReader(const Value::Map& items, std::vector<std::string>& complaints)
      : items_(items), complaints_(complaints) {}

  [[nodiscard]] bool flag(std::string_view key) {
    const Value* item = find(key);
    if (item == nullptr || item->isNumber()) return item != nullptr && item->booleanMeaning();
    complain(key, "must be a number or a boolean; it counts as false");
    return false;
  }

  template <class IsValid>
  void text(std::string_view key, std::optional<std::string>& target, std::string_view rule,
            IsValid isValid) {
    const Value* item = find(key);
    if (item == nullptr) return;
    const std::string* value = item->ifString();
    if (value != nullptr && isValid(*value)) {
      target = *value;
    } else {
      complain(key, std::string(rule) + "; it counts as absent");
    }
  }

  void seconds(std::string_view key, milliseconds& target, milliseconds least, milliseconds most) {
    const Value* item = find(key);
    if (item == nullptr) return;
    const bool isNumber = item->isNumber() && !item->isBool();
    const double value = isNumber ? item->number() * 1000 : -1;
    if (value >= static_cast<double>(least.count()) && value <= static_cast<double>(most.count())) {
      target = milliseconds(static_cast<milliseconds::rep>(value));
      return;
    }
    complain(key, "must be a number of seconds from " + inSeconds(least) + " to " +
                      inSeconds(most) + "; the default of " + inSeconds(target) + " holds");
  }

  void count(std::string_view key, std::size_t& target, CountRange range) {
    const Value* item = find(key);
    if (item == nullptr) return;
    const double value = item->isNumber() && !item->isBool() ? item->number() : -1;
    if (value >= static_cast<double>(range.least) && value <= static_cast<double>(range.most) &&
        value == std::floor(value)) {
      target = static_cast<std::size_t>(value);
      return;
    }
    complain(key, "must be a whole number from " + std::to_string(range.least) + " to " +
                      std::to_string(range.most) + "; the default of " + std::to_string(target) +
                      " holds");
  }

 private:
  static std::string inSeconds(milliseconds duration) {
    std::string text = std::to_string(static_cast<double>(duration.count()) / 1000);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text;
  }

  [[nodiscard]] const Value* find(std::string_view key) const {
    const Value* item = items_.find(key);
    return item == nullptr || item->isNull() ? nullptr : item;
  }

  void complain(std::string_view key, std::string_view rule) {
    complaints_.push_back(std::string(fileName).append(key).append(" ").append(rule));
  }

  const Value::Map& items_;
  std::vector<std::string>& complaints_;
};

bool isFolderName(std::string_view name) {
  constexpr std::string_view allowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
  return !name.empty() && name.size() <= 100 && name.front() != '.' &&
         name.find_first_not_of(allowed) == std::string_view::npos;
}

bool isPrintable(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

}  // namespace

ParsedCoreSettings parseCoreSettings(const Value::Map& items) {
  ParsedCoreSettings parsed;
  CoreSettings& settings = parsed.settings;
  ItemReader read(items, parsed.complaints);
  settings.manualPost = read.flag("ManualPostEnabled");
  read.text("ApplicationId", settings.applicationId,
            "must be 1 to 100 letters, digits, '.', '_' or '-', not beginning with '.'",
            isFolderName);
  read.text("UserAgent", settings.userAgent, "must be a string of printable ASCII characters",
            isPrintable);
  read.seconds("RetryBaseSeconds", settings.retry.base, milliseconds(10), std::chrono::hours(1));
  // A cap below the base would be no cap at all.
  settings.retry.cap = std::max(settings.retry.cap, settings.retry.base);
  read.seconds("RetryCapSeconds", settings.retry.cap, settings.retry.base, std::chrono::hours(24));
  read.seconds("ConnectTimeoutSeconds", settings.connectTimeout, milliseconds(100),
               std::chrono::minutes(5));
  read.seconds("RequestTimeoutSeconds", settings.requestTimeout, milliseconds(100),
               std::chrono::minutes(10));
  read.count("MaxQueuedMessages", settings.maxQueuedMessages, queuedMessagesRange);
  read.count("MaxQueueBytes", settings.maxQueueBytes, queueBytesRange);
  read.count("MaxDeadLetters", settings.maxDeadLetters, deadLettersRange);
  read.count("MaxConcurrentPosts", settings.maxConcurrentPosts, concurrentPostsRange);
  return parsed;
}

}  // namespace vantamo::core
