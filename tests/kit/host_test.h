#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/random.h"
#include "vantamo/platform.h"

namespace vantamo::test {

/// One message of the debug log.
struct LogEntry {
  std::string operation;
  std::string text;
};

/// A test with folders of its own for caches and settings, and with the debug log kept in memory.
class HostTest : public testing::Test {
 protected:
  HostTest() {
    setenv("VANTAMO_DEBUG", "1", 1);
    std::filesystem::create_directories(bundle());
    overrides.cachesDirectory = caches().string();
    overrides.mainBundleFolder = bundle().string();
    // Shared with the sink, which a thread of the core may be in when the test ends.
    overrides.logSink = [raw = raw_](std::string_view text) {
      const std::scoped_lock lock(raw->mutex);
      raw->messages.emplace_back(text);
    };
    setPlatformOverrides(overrides);
  }
  ~HostTest() override {
    setPlatformOverrides({});
    std::error_code error;
    std::filesystem::remove_all(scratch_, error);
  }

  [[nodiscard]] const std::filesystem::path& scratch() const { return scratch_; }
  [[nodiscard]] std::filesystem::path caches() const { return scratch_ / "caches"; }
  [[nodiscard]] std::filesystem::path bundle() const { return scratch_ / "bundle"; }

  /// Writes <main bundle>/<module>.bundle/settings.json.
  void writeSettings(const std::string& module, std::string_view json) const {
    const auto folder = bundle() / (module + ".bundle");
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "settings.json") << json;
  }

  [[nodiscard]] std::vector<std::string> rawLog() {
    const std::scoped_lock lock(raw_->mutex);
    return raw_->messages;
  }
  [[nodiscard]] std::vector<LogEntry> log() {
    std::vector<LogEntry> entries;
    for (const std::string& raw : rawLog()) {
      const auto operation = raw.find("{ ");
      const auto text = raw.find("\n~~\n");
      if (operation == std::string::npos || text == std::string::npos) continue;
      entries.push_back({raw.substr(operation + 2, raw.find(" }") - operation - 2),
                         raw.substr(text + 4, raw.size() - text - 4 - 6)});
    }
    return entries;
  }
  [[nodiscard]] std::vector<std::string> logTexts() {
    std::vector<std::string> texts;
    for (const LogEntry& entry : log()) texts.push_back(entry.text);
    return texts;
  }
  void clearLog() {
    const std::scoped_lock lock(raw_->mutex);
    raw_->messages.clear();
  }

  PlatformOverrides overrides;

 private:
  const std::filesystem::path scratch_ =
      std::filesystem::temp_directory_path() / ("vantamo-test-" + platform::randomUuid());
  struct RawLog {
    std::mutex mutex;
    std::vector<std::string> messages;
  };
  const std::shared_ptr<RawLog> raw_ = std::make_shared<RawLog>();
};

}  // namespace vantamo::test
