#pragma once

#include <optional>
#include <string>

#include "platform/private_folder.h"

namespace vantamo::core {

/// One of the numbered folders in an application's queue folder, owned by this process for as long
/// as the object lives. Processes of one application that run at the same time own one each; what a
/// process has left is found by the next one. Safe to be closed from any thread.
class QueueSlot {
 public:
  /// The file that an owner holds a lock on.
  static constexpr const char* lockName = "owner.lock";

  /// The folder `preferred`, or the first one that nobody owns and that can be used, made when
  /// needed. Throws when there is none.
  static QueueSlot acquire(const platform::PrivateFolder& application,
                           const std::string& preferred = "0");
  /// The folder `name`, or nothing when somebody owns it. Throws when it cannot be used.
  static std::optional<QueueSlot> tryAcquire(const platform::PrivateFolder& application,
                                             const std::string& name);
  /// Whether a folder of the application's with this name is one of them.
  [[nodiscard]] static bool isName(const std::string& name);
  /// The names of the folders that are there.
  static std::vector<std::string> namesIn(const platform::PrivateFolder& application);
  /// In a forked child: gives up what the parent owns, in the child alone, which leaves those
  /// folders to others for good: in its memory the database library holds them locked.
  /// Async-signal-safe.
  static void abandonAll() noexcept;

  QueueSlot(QueueSlot&& other) noexcept;
  QueueSlot& operator=(QueueSlot&&) = delete;
  QueueSlot(const QueueSlot&) = delete;
  ~QueueSlot();

  [[nodiscard]] const platform::PrivateFolder& folder() const { return folder_; }
  [[nodiscard]] const std::string& name() const { return name_; }
  /// Erases all that is in the folder but the lock; whether all of it is gone.
  [[nodiscard]] bool erase() const;
  /// Whether folder and lock have their names still.
  [[nodiscard]] bool isInPlace() const noexcept;

 private:
  QueueSlot(platform::PrivateFolder folder, std::string name, platform::UniqueFd lock);

  platform::PrivateFolder folder_;
  std::string name_;
  platform::UniqueFd lock_;
};

}  // namespace vantamo::core
