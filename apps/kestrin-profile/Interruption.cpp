#include "Interruption.hpp"

#include <csignal>

namespace KestrinProfileCLI {

namespace {

/// Ends the listener; no person sends it.
constexpr int farewell = SIGUSR1;

sigset_t listenedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int each : {SIGINT, SIGTERM, farewell})
        sigaddset(&signals, each);
    return signals;
}

}  // namespace

Interruption::Interruption() {
    const sigset_t signals = listenedSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    listener_ = std::thread([this] { listen(); });
}

Interruption::~Interruption() {
    pthread_kill(listener_.native_handle(), farewell);
    listener_.join();
}

void Interruption::listen() {
    const sigset_t signals = listenedSignals();
    int received = 0;
    while (sigwait(&signals, &received) == 0 && received != farewell)
        notify([this] { interrupted_ = true; });
}

}  // namespace KestrinProfileCLI
