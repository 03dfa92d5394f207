#pragma once

#include <optional>
#include <sys/types.h>
#include <vector>

namespace TestSupport {

/// The number of the calling thread, by which the system names it.
[[nodiscard]] pid_t thisThread();

/// The numbers of all other threads of this process.
[[nodiscard]] std::vector<pid_t> otherThreads();

/// Whether a thread of this process is waiting for something, at this moment.
[[nodiscard]] bool isWaiting(pid_t thread);

/// Whether a thread of this process is waiting, at this moment, in a way that no time ends: until
/// another thread, a signal or a descriptor wakes it.
[[nodiscard]] bool isWaitingWithoutEnd(pid_t thread);

}  // namespace TestSupport
