#include "cores/default/delivered_marks.h"

#include <algorithm>
#include <array>

#include "cores/default/queue_store.h"

namespace vantamo::core {
namespace {

constexpr std::size_t idSize = 36;
constexpr std::size_t lineSize = idSize + 1;

bool writeAt(int fd, std::string_view bytes, std::size_t position) {
  const ssize_t wrote = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(position));
  return wrote == static_cast<ssize_t>(bytes.size());
}

}  // namespace

DeliveredMarks::DeliveredMarks(platform::UniqueFd file) : file_(std::move(file)) {
  constexpr std::size_t size = capacity * lineSize;
  if (::lseek(file_.get(), 0, SEEK_END) != static_cast<off_t>(size)) {
    // Should this fail, so will write(), which tells.
    static_cast<void>(writeAt(file_.get(), std::string(size, '\n'), 0) &&
                      ::ftruncate(file_.get(), static_cast<off_t>(size)) == 0);
  }
}

std::vector<std::string> DeliveredMarks::read() const {
  std::vector<std::string> ids;
  std::array<char, idSize> line{};
  for (std::size_t i = 0; i < capacity; ++i) {
    const auto position = static_cast<off_t>(i * lineSize);
    if (::pread(file_.get(), line.data(), idSize, position) != static_cast<ssize_t>(idSize)) break;
    std::string id(line.data(), idSize);
    if (isMessageId(id)) ids.push_back(std::move(id));
  }
  return ids;
}

void DeliveredMarks::add(std::string_view id) {
  noted_.append(id.substr(0, idSize));
  noted_.append(lineSize - std::min(id.size(), idSize), '\n');
}

bool DeliveredMarks::write() noexcept {
  while (!noted_.empty()) {
    const std::size_t size = std::min(noted_.size(), (capacity - next_) * lineSize);
    const std::string_view lines = std::string_view(noted_).substr(0, size);
    if (!writeAt(file_.get(), lines, next_ * lineSize)) return false;
    next_ = (next_ + size / lineSize) % capacity;
    noted_.erase(0, size);
  }
  return true;
}

}  // namespace vantamo::core
