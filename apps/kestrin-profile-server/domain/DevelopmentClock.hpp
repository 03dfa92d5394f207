#pragma once

#include <atomic>
#include <utility>

#include <kestrin-profile-server/domain/Timestamp.hpp>

namespace KestrinProfileServer {

/// A clock that follows another one until somebody sets, moves or freezes it. Used by all threads
/// at once.
class DevelopmentClock {
  public:
    explicit DevelopmentClock(Clock source) : source_(std::move(source)) {}

    [[nodiscard]] Milliseconds now() const { return timeOf(state_.load()); }
    [[nodiscard]] bool isFrozen() const { return isFrozen(state_.load()); }
    /// How far it is ahead of the clock that it follows.
    [[nodiscard]] Milliseconds offset() const { return now() - source_(); }

    /// From here on it is that late, and stands still or goes on as before.
    void set(Milliseconds time) {
        change([&](State before) { return stateOf(time, isFrozen(before)); });
    }
    /// Stands still at the time that it shows, or goes on from there.
    void freeze(bool isFrozenNow) {
        change([&](State before) { return stateOf(timeOf(before), isFrozenNow); });
    }
    /// Moves it forwards, or backwards.
    void advance(Milliseconds time) {
        change([&](State before) { return stateOf(timeOf(before) + time, isFrozen(before)); });
    }
    /// Follows the other clock again.
    void reset() { state_ = 0; }

  private:
    /// Twice the time at which it stands, plus one; or twice what it is ahead.
    using State = Milliseconds;

    [[nodiscard]] static bool isFrozen(State state) { return state % 2 != 0; }
    [[nodiscard]] Milliseconds timeOf(State state) const {
        return isFrozen(state) ? (state - 1) / 2 : source_() + state / 2;
    }
    [[nodiscard]] State stateOf(Milliseconds time, bool isFrozenNow) const {
        return isFrozenNow ? 2 * time + 1 : 2 * (time - source_());
    }
    template <class Change>
    void change(const Change& next) {
        State before = state_.load();
        while (!state_.compare_exchange_weak(before, next(before))) {
        }
    }

    Clock source_;
    std::atomic<State> state_ = 0;
};

}  // namespace KestrinProfileServer
