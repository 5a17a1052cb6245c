#include "module/settings_reader.h"
#include "module/vt_mod.h"
#include "support/guarded.h"

using vantamo::Text;
using vantamo::Value;
using vantamo::support::debugLog;
using vantamo::support::guarded;

namespace {

std::string printed(const std::optional<std::string>& text) { return text.value_or("(null)"); }

}  // namespace

bool VTMod::setActiveClientId(Text clientId) {
  constexpr const char* operation = "+[VTMod setActiveClientId:]";
  return guarded(operation, false, [&](bool& result) {
    VTMod& module = sharedInstance();
    if (!clientId.absentOrEmpty()) {
      debugLog(operation, [&] {
        return vantamo::support::withValues("Switching client id from:%@ to %@",
                                            printed(module.clientId()), clientId.view());
      });
      module.setClientId(clientId);
    } else {
      debugLog(operation, [] { return "Loading clientId from configuration file"; });
      module.setClientId(vantamo::module::stringItem(operation, "ClientId"));
    }
    const auto active = module.clientId();
    debugLog(operation,
             [&] { return vantamo::support::withValue("Active clientId:%@", printed(active)); });
    result = active && !active->empty();
  });
}

bool VTMod::clearActiveClientId() {
  return guarded("+[VTMod clearActiveClientId]", false,
                 [](bool& result) { result = setActiveClientId(nullptr); });
}

bool VTMod::setOptOut(Text mode) {
  return guarded("-[VTMod setOptOut:]", false, [&](bool& result) {
    for (const std::string_view known : {"opt_in", "opt_out", "anonymous"}) {
      if (mode.present() && mode.view() == known) {
        setOptOutModeStr(known);
        result = true;
        return;
      }
    }
    setOptOutModeStr("opt_in");
  });
}

std::string VTMod::getOptOut() {
  return guarded("-[VTMod getOptOut]", std::string(),
                 [this](std::string& result) { result = optOutModeStr(); });
}

bool VTMod::isOptOutAnonymous() {
  return guarded("-[VTMod isOptOutAnonymous]", false,
                 [this](bool& result) { result = optOutModeStr() == "anonymous"; });
}

std::optional<Value> VTMod::constraintsFor(Text apiName) {
  using Limits = std::optional<Value>;
  return guarded("-[VTMod constraintsFor:]", Limits(), [&](Limits& result) {
    const auto item = NQCore::sharedInstance().getConfigItem("constraints", moduleName);
    const Value::Map* apis = item ? item->ifMap() : nullptr;
    const Value* limits = apis == nullptr ? nullptr : apis->find(apiName.view());
    if (limits != nullptr) result = *limits;
  });
}
