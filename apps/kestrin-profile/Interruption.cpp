#include "Interruption.hpp"

#include <csignal>
#include <poll.h>
#include <unistd.h>

#include "ExitCode.hpp"

namespace KestrinProfileCLI {

namespace {

/// Ends the listener.
constexpr int endSignal = SIGUSR1;

sigset_t awaitedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int each : {SIGINT, SIGTERM, endSignal})
        sigaddset(&signals, each);
    return signals;
}

}  // namespace

Interruption::Interruption() {
    const sigset_t signals = awaitedSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    listener_ = std::thread([this] { listen(); });
}

Interruption::~Interruption() {
    pthread_kill(listener_.native_handle(), endSignal);
    listener_.join();
}

void Interruption::check() {
    const std::scoped_lock lock(mutex_);
    if (interrupted_) throw CommandError::interrupted();
}

void Interruption::waitUntilReadable(int descriptor) {
    constexpr int pollMilliseconds = 100;
    pollfd waited{descriptor, POLLIN, 0};
    do
        check();
    while (poll(&waited, 1, pollMilliseconds) == 0);
}

void Interruption::listen() {
    const sigset_t signals = awaitedSignals();
    int received = 0;
    for (bool isFirst = true; sigwait(&signals, &received) == 0 && received != endSignal;
         isFirst = false) {
        if (!isFirst) _exit(static_cast<int>(ExitCode::interrupted));
        notify([this] { interrupted_ = true; });
    }
}

}  // namespace KestrinProfileCLI
