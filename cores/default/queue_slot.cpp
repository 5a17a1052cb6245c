#include "cores/default/queue_slot.h"

#include <sys/file.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace vantamo::core {
namespace {

constexpr int mostSlots = 64;

// Locks held now: the slot's number and the descriptor plus one; 0 for none. A forked child shares
// them, and with them the ownership.
struct alignas(8) HeldLock {
  std::int32_t number = 0;
  std::int32_t descriptorPlusOne = 0;
  bool operator==(const HeldLock&) const = default;
};
constinit std::array<std::atomic<HeldLock>, mostSlots> heldLocks{};
// One bit for each slot that belonged to the parent when this process was forked.
constinit std::atomic<std::uint64_t> ofParent{0};

void exchangeHeld(HeldLock from, HeldLock to) noexcept {
  for (auto& held : heldLocks) {
    HeldLock expected = from;
    if (held.compare_exchange_strong(expected, to)) return;
  }
}

std::uint64_t bitOf(int number) {
  return number < mostSlots ? std::uint64_t{1} << static_cast<unsigned>(number) : 0;
}

HeldLock heldLock(const std::string& name, const platform::UniqueFd& lock) {
  return {std::stoi(name), lock.get() + 1};
}

}  // namespace

QueueSlot::QueueSlot(platform::PrivateFolder folder, std::string name, platform::UniqueFd lock)
    : folder_(std::move(folder)), name_(std::move(name)), lock_(std::move(lock)) {
  exchangeHeld({}, heldLock(name_, lock_));
}

QueueSlot::QueueSlot(QueueSlot&& other) noexcept = default;

QueueSlot::~QueueSlot() {
  if (lock_) exchangeHeld(heldLock(name_, lock_), {});
}

void QueueSlot::abandonAll() noexcept {
  for (auto& held : heldLocks) {
    const HeldLock lock = held.exchange({});
    if (lock.descriptorPlusOne == 0) continue;
    ofParent |= bitOf(lock.number);
    ::close(lock.descriptorPlusOne - 1);
  }
}

std::optional<QueueSlot> QueueSlot::tryAcquire(const platform::PrivateFolder& application,
                                               const std::string& name) {
  if ((ofParent & bitOf(std::stoi(name))) != 0) return {};
  platform::PrivateFolder folder = application.child(name);
  platform::UniqueFd lock = folder.open(lockName).fd;
  if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return {};
    throw std::system_error(errno, std::generic_category(), folder.pathOf(lockName));
  }
  // Its last owner may have erased the folder just before.
  if (!folder.isInPlace() || !folder.holds(lockName, lock)) return {};
  return QueueSlot(std::move(folder), name, std::move(lock));
}

QueueSlot QueueSlot::acquire(const platform::PrivateFolder& application,
                             const std::string& preferred) {
  std::string problem;
  for (int number = -1; number < mostSlots; ++number) {
    const std::string name = number < 0 ? preferred : std::to_string(number);
    // Twice, should somebody have erased it just now.
    for (int attempt = 0; attempt < 2; ++attempt) {
      try {
        if (auto slot = tryAcquire(application, name)) return std::move(*slot);
      } catch (const std::exception& exception) {
        problem = exception.what();
      }
    }
  }
  if (problem.empty()) problem = application.path() + ": all queue folders are in use";
  throw std::runtime_error(problem);
}

bool QueueSlot::isName(const std::string& name) {
  return !name.empty() && name.size() <= 2 &&
         name.find_first_not_of("0123456789") == std::string::npos;
}

std::vector<std::string> QueueSlot::namesIn(const platform::PrivateFolder& application) {
  std::vector<std::string> names = application.names();
  std::erase_if(names, [](const std::string& name) { return !isName(name); });
  return names;
}

bool QueueSlot::erase() const {
  bool all = true;
  for (const std::string& name : folder_.names()) {
    if (name != lockName) all = folder_.remove(name) && all;
  }
  return all;
}

bool QueueSlot::isInPlace() const noexcept {
  return folder_.isInPlace() && folder_.holds(lockName, lock_);
}

}  // namespace vantamo::core
