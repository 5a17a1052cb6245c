#pragma once

#include "tests/kit/host_test.h"
#include "vantamo/recording_core.h"
#include "vantamo/vantamo.h"

namespace vantamo::test {

/// A test of the module and the facade over the recording core.
class ModuleTest : public HostTest {
 protected:
  ModuleTest() {
    core.reset();
    core.settings["VTMod"] = {{"PostMessageUrl", "https://tags.example/collect"},
                              {"AppName", "App"},
                              {"ClientId", "123"}};
  }
  ~ModuleTest() override { Vantamo::shutdown(); }

  /// The tags posted so far.
  [[nodiscard]] std::vector<Value::Map> bodies() const {
    std::vector<Value::Map> bodies;
    for (const auto& message : core.messages) bodies.push_back(message.body);
    return bodies;
  }
  /// One key of each posted tag, "-" where it is missing.
  [[nodiscard]] std::vector<std::string> posted(std::string_view key) const {
    std::vector<std::string> values;
    for (const auto& message : core.messages) {
      values.emplace_back(message.body.stringAt(key).value_or("-"));
    }
    return values;
  }

  RecordingCore& core = RecordingCore::sharedInstance();
};

}  // namespace vantamo::test
