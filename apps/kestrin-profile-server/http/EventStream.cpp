#include <utility>

#include <kestrin-profile-server/http/EventStream.hpp>

namespace KestrinProfileServer {

EventStream::Taken EventStream::take() {
    const auto state = state_.lock();
    return {std::exchange(state->text, {}), state->isEnded};
}

void EventStream::setWake(std::function<void()> wake) {
    auto state = state_.lock();
    state->wake = std::move(wake);
    const auto now = state->text.empty() && !state->isEnded ? nullptr : state->wake;
    state.unlock();
    if (now) now();
}

void EventStream::add(std::string_view text) {
    auto state = state_.lock();
    if (state->isEnded) return;
    const bool wasEmpty = state->text.empty();
    if (state->text.size() + text.size() > limit) {
        state->text.clear();
        state->isEnded = true;
    } else {
        state->text += text;
    }
    const auto wake = wasEmpty || state->isEnded ? state->wake : nullptr;
    state.unlock();
    if (wake) wake();
}

void EventStream::end() {
    auto state = state_.lock();
    state->isEnded = true;
    const auto wake = state->wake;
    state.unlock();
    if (wake) wake();
}

}  // namespace KestrinProfileServer
