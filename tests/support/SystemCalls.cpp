#include "support/SystemCalls.hpp"

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "support/Waiting.hpp"

namespace TestSupport {

namespace {

/// The system call in which a thread is; absent while it runs.
struct SystemCall {
    long number;
    std::array<std::uint64_t, 6> arguments;
};

std::optional<SystemCall> systemCallOf(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
    SystemCall call{};
    if (!(file >> call.number) || call.number < 0) return std::nullopt;
    file >> std::hex;
    for (auto& each : call.arguments) {
        std::string text;
        file >> text;
        each = std::stoull(text, nullptr, 16);
    }
    return call;
}

/// Whether milliseconds stand for no limit, or for one of days.
bool isEndless(std::uint64_t milliseconds) {
    constexpr std::int32_t day = 24 * 60 * 60 * 1000;
    const auto limit = static_cast<std::int32_t>(milliseconds);
    return limit < 0 || limit >= day;
}

}  // namespace

pid_t thisThread() {
    return ::gettid();
}

namespace {

/// The first thread of a process brings one of ThreadSanitizer's along, which stays.
bool hadAThread() {
    pid_t thread = 0;
    std::thread([&] { thread = thisThread(); }).join();
    const auto task = std::filesystem::path("/proc/self/task") / std::to_string(thread);
    return eventually([&] { return !std::filesystem::exists(task); });
}

}  // namespace

std::vector<pid_t> otherThreads() {
    static const bool isReady = hadAThread();
    std::vector<pid_t> all;
    if (!isReady) return all;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/task"))
        if (const pid_t thread = std::stoi(each.path().filename()); thread != thisThread())
            all.push_back(thread);
    return all;
}

bool isWaiting(pid_t thread) {
    return systemCallOf(thread).has_value();
}

bool isWaitingWithoutEnd(pid_t thread) {
    const auto call = systemCallOf(thread);
    if (!call) return false;
    switch (call->number) {
#ifdef SYS_poll
        case SYS_poll:
            return isEndless(call->arguments[2]);
#endif
#ifdef SYS_epoll_wait
        case SYS_epoll_wait:
            return isEndless(call->arguments[3]);
#endif
        case SYS_epoll_pwait:
            return isEndless(call->arguments[3]);
        case SYS_ppoll:
            return call->arguments[2] == 0;
        case SYS_futex:
            return call->arguments[3] == 0;
        case SYS_accept4:
        case SYS_recvfrom:
        case SYS_read:
            return true;
        default:
            return false;
    }
}

}  // namespace TestSupport
