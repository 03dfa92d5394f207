#pragma once

#include <system_error>
#include <thread>
#include <utility>

#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

/// A thread that does the work; throws StartError if the system gives none.
template <class Work>
[[nodiscard]] std::thread startedThread(Work work) {
    try {
        return std::thread(std::move(work));
    } catch (const std::system_error& failure) {
        throw StartError("cannot start a thread: " + failure.code().message() +
                         ". Choose fewer --threads, or end other programs.");
    }
}

}  // namespace KestrinProfileServer
