#pragma once

#include <chrono>
#include <cstddef>

/// What a host can ask the default core beyond the core contract. Link Vantamo::default_core.
namespace vantamo::default_core {

/// Number of messages accepted and not yet delivered, those of earlier runs included. 0 when the
/// queue file cannot be read. Reads that file: not for a latency-critical thread.
[[nodiscard]] std::size_t undeliveredMessageCount();

/// Waits until no undelivered message is left or `timeout` is over; true in the first case. A
/// pending retry is tried once at once, and sending goes on for the time of the call after
/// Vantamo::shutdown() too. With ManualPostEnabled only messages that were flushed are sent.
/// While the library was never started nothing is sent, and the answer comes at once.
/// Blocks the calling thread: for a program's end, not for its user interface.
bool drain(std::chrono::milliseconds timeout);

}  // namespace vantamo::default_core
