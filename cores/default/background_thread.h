#pragma once

#include <functional>
#include <thread>

namespace vantamo::core {

/// A thread that receives no signals: they are the host's. Throws std::system_error when the system
/// gives none.
[[nodiscard]] std::thread startBackgroundThread(std::function<void()> body);

}  // namespace vantamo::core
