#include "state/vt_mod_session.h"

#include <chrono>
#include <stdexcept>

#include "platform/directories.h"
#include "platform/file.h"
#include "platform/process_singleton.h"
#include "platform/random.h"
#include "state/session_ids.h"
#include "support/guarded.h"
#include "support/json.h"

using vantamo::Value;
using vantamo::support::debugLog;
using vantamo::support::guarded;
namespace platform = vantamo::platform;

constinit std::atomic<bool (*)()> VTModSession::isAnonymous_{nullptr};

namespace {

constexpr const char* updateOperation = "-[VTModSession updateSessionFile]";

}  // namespace

VTModSession& VTModSession::sharedInstance() {
  static constinit platform::ProcessSingleton<VTModSession> instance;
  return instance.get();
}

VTModSession::VTModSession() {
  guarded("-[VTModSession init]", [this] {
    newSession();
    const std::string path = sessionFilePath();
    if (!path.empty()) platform::removeLeftovers(path, std::chrono::hours(1));
  });
}

void VTModSession::reportAnonymousWhen(bool (*isAnonymous)()) { isAnonymous_ = isAnonymous; }

bool VTModSession::newSession() {
  return guarded("-[VTModSession newSession]", false, [this](bool& result) {
    const platform::MutexLock lock(startMutex_);
    const platform::FolderLock folder = lockedFolder();
    std::optional<Value> contents;
    if (sessionFileExists()) contents = contentsOfSessionFile();
    std::string visitor;
    if (contents) {
      // Anything but an object throws here, and with it this start leaves ids and file alone.
      visitor = contents->map().stringAt("cjuid").value_or("");
    }
    cjuid_.set(visitor.empty() ? newUserId() : visitor);
    cjsid_.set(newSessionId());
    result = writeSessionFile();
  });
}

bool VTModSession::eraseVisitor(bool running) {
  return guarded("-[VTModSession eraseVisitor]", false, [this, running](bool& result) {
    const platform::MutexLock lock(startMutex_);
    cjuid_.set(newUserId());
    cjsid_.set(newSessionId());
    const std::string path = sessionFilePath();
    if (path.empty()) return;
    const platform::FolderLock folder = running ? lockedFolder() : platform::FolderLock("");
    const bool removed = platform::removeFile(path);
    platform::removeLeftovers(path, std::chrono::seconds(0));
    // A file that cannot be removed may still take other ids in place of the visitor's.
    const bool written = (running || !removed) && writeSessionFile();
    result = removed || written;
  });
}

std::string VTModSession::sessionDirectoryPath() const {
  return guarded("-[VTModSession sessionDirectoryPath]", std::string(),
                 [](std::string& result) { result = platform::cachesDirectory() + "/VTSessions"; });
}

bool VTModSession::sessionDirectoryExists() const {
  return guarded("-[VTModSession sessionDirectoryExists]", false,
                 [this](bool& result) { result = platform::exists(sessionDirectoryPath()); });
}

std::string VTModSession::sessionFilePath() const {
  return guarded("-[VTModSession sessionFilePath]", std::string(), [this](std::string& result) {
    // Without a directory there is no file: never one at the root of the file system.
    const std::string directory = sessionDirectoryPath();
    if (!directory.empty()) result = directory + "/VTSessions.json";
  });
}

bool VTModSession::sessionFileExists() const {
  return guarded("-[VTModSession sessionFileExists]", false,
                 [this](bool& result) { result = platform::exists(sessionFilePath()); });
}

bool VTModSession::createSessionDirectory() const {
  constexpr const char* operation = "-[VTModSession createSessionDirectory]";
  return guarded(operation, false, [&](bool& result) {
    platform::createDirectories(sessionDirectoryPath());
    const bool there = sessionDirectoryExists();
    debugLog(operation, [there] {
      return vantamo::support::withValue("Session Directory %@ Created", there ? "" : "Not");
    });
    result = there;
  });
}

std::optional<Value> VTModSession::contentsOfSessionFile() const {
  constexpr const char* operation = "-[VTModSession contentsOfSessionFile]";
  constexpr std::size_t sizeLimit = 16UL * 1024 * 1024;
  constexpr auto link = platform::Link::refused;
  return guarded(operation, std::optional<Value>(), [&](std::optional<Value>& result) {
    if (const auto text = platform::readFile(sessionFilePath(), sizeLimit, link)) {
      try {
        result = vantamo::support::parseJson(*text);
      } catch (const vantamo::support::JsonError&) {
        result = std::nullopt;
      }
    }
    if (!result || !result->isMap()) {
      debugLog(operation, [] { return "JSONObjectWithData did not return a dictionary"; });
    }
  });
}

// Made before it is locked, so that two processes that both find no file make one visitor.
platform::FolderLock VTModSession::lockedFolder() const {
  if (!sessionDirectoryExists() && !createSessionDirectory()) return platform::FolderLock("");
  const std::string path = sessionDirectoryPath();
  platform::keepOthersOut(path);
  return platform::FolderLock(path);
}

bool VTModSession::updateSessionFile() const {
  return guarded(updateOperation, false, [this](bool& result) {
    if (!sessionDirectoryExists()) createSessionDirectory();
    result = writeSessionFile();
  });
}

bool VTModSession::writeSessionFile() const {
  return guarded(updateOperation, false, [this](bool& result) {
    const auto visitor = cjuid_.get();
    const auto session = cjsid_.get();
    if (!visitor || !session) throw std::invalid_argument("a session id is missing");
    const Value::Map ids = {{"cjuid", *visitor}, {"cjsid", *session}};
    const std::string path = sessionFilePath();
    if (path.empty()) return;
    const auto written = platform::replaceFile(path, vantamo::support::writeJson(ids));
    if (written == platform::FileWrite::failed) {
      debugLog(updateOperation, [] { return "Error updating session file"; });
    }
    result = written == platform::FileWrite::done;
  });
}

std::string VTModSession::newUserId() const {
  return guarded("-[VTModSession newUserId]", std::string(), [](std::string& result) {
    const std::uint32_t first = platform::random32();
    result = vantamo::state::visitorIdFrom(first, platform::random32());
  });
}

std::string VTModSession::newSessionId() const {
  return guarded("-[VTModSession newSessionId]", std::string(), [](std::string& result) {
    result = vantamo::state::sessionIdFrom(platform::random32());
  });
}

std::string VTModSession::visitorId() const {
  return guarded("-[VTModSession visitorId]", std::string(), [this](std::string& result) {
    const auto isAnonymous = isAnonymous_.load();
    const bool anonymous = isAnonymous != nullptr && isAnonymous();
    result = anonymous ? vantamo::state::anonymousVisitorId : cjuid_.get().value_or("");
  });
}

std::optional<std::string> VTModSession::cjuid() const { return cjuid_.get(); }
void VTModSession::setCjuid(vantamo::Text cjuid) { cjuid_.set(cjuid.copy()); }
std::optional<std::string> VTModSession::cjsid() const { return cjsid_.get(); }
