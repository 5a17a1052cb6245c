#pragma once

#include <mutex>

namespace vantamo::core {

/// From here on a fork() of this process waits, for a moment at most, until no thread is inside the
/// locks that the database library and the start of the HTTP library keep for all of the process: a
/// forked child would find them locked for ever. Safe to call again. Throws std::bad_alloc.
void guardForks();

/// Held while a library is started that cannot be forked meanwhile.
[[nodiscard]] std::mutex& libraryStartMutex();

}  // namespace vantamo::core
