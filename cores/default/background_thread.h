#pragma once

#include <functional>
#include <thread>

namespace vantamo::core {

/// A thread that receives no signals: they are the host's. Only those that a fault raises reach the
/// host's handlers as on any thread. Nothing that `body` throws ends the process. Throws
/// std::system_error when the system gives no thread.
[[nodiscard]] std::thread startBackgroundThread(std::function<void()> body);

}  // namespace vantamo::core
