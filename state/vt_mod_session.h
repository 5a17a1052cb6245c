#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "platform/folder_lock.h"
#include "platform/mutex.h"
#include "vantamo/text.h"
#include "vantamo/value.h"

/// Owns the two identifiers stamped on every tag: the visitor id `cjuid`, which survives restarts,
/// and the session id `cjsid`, made new with each session. Both are kept in
/// <caches>/VTSessions/VTSessions.json as {"cjuid":"...","cjsid":"..."}; only the visitor id is
/// ever read back. Processes of one user share the file, and with it the visitor.
///
/// Safe from any thread: the ids are guarded, and sessions start one at a time. Nothing derived
/// from std::exception leaves an operation; a failure is logged and answered with "", false or
/// nothing.
class VTModSession {
 public:
  /// The one instance; its creation starts a session.
  static VTModSession& sharedInstance();

  VTModSession();
  VTModSession(const VTModSession&) = delete;
  VTModSession& operator=(const VTModSession&) = delete;

  /// Reads the visitor id from the file, or makes a new one, and makes a new session id; then
  /// writes both. What updateSessionFile answers; false and nothing changed when the file holds
  /// JSON that is not an object.
  bool newSession();
  /// Makes new ids, as for a visitor never seen, and puts them in the file's place when `running`;
  /// else removes the file, and the next session makes another visitor. True when the file holds
  /// nothing of the old visitor any more.
  bool eraseVisitor(bool running);

  std::string sessionDirectoryPath() const;
  bool sessionDirectoryExists() const;
  /// "" when there is no caches directory.
  std::string sessionFilePath() const;
  bool sessionFileExists() const;
  /// Creates the directory; whether it is there afterwards.
  bool createSessionDirectory() const;
  /// The file's JSON value of whatever kind; nothing when it cannot be read or parsed.
  std::optional<vantamo::Value> contentsOfSessionFile() const;
  bool updateSessionFile() const;

  std::string newUserId() const;
  std::string newSessionId() const;

  /// The visitor id as tags carry it: the anonymous one in anonymous mode, else `cjuid`.
  std::string visitorId() const;
  /// Absent when no session could ever be started.
  std::optional<std::string> cjuid() const;
  /// Changes the field only; the next session puts the stored id back.
  void setCjuid(vantamo::Text cjuid);
  std::optional<std::string> cjsid() const;

  /// Tells the store how to learn whether anonymous mode is on. Set once by the module; until then
  /// it is off.
  static void reportAnonymousWhen(bool (*isAnonymous)());

 private:
  /// Creates the folder when it is not there, and locks it.
  vantamo::platform::FolderLock lockedFolder() const;
  bool writeSessionFile() const;

  static std::atomic<bool (*)()> isAnonymous_;

  vantamo::platform::Mutex startMutex_;  // one session starts at a time
  vantamo::platform::Locked<std::optional<std::string>> cjuid_;
  vantamo::platform::Locked<std::optional<std::string>> cjsid_;
};
