#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include <internal/Guarded.hpp>

namespace KestrinProfileServer {

/// What one listener has not taken yet. Who takes too slowly loses the stream, so that nobody's
/// events are kept without end. Used by all threads at once.
class EventStream {
  public:
    /// What is kept for one listener, in bytes.
    static constexpr std::size_t limit = std::size_t{1024} * 1024;

    struct Taken {
        std::string text;
        bool isEnded = false;  ///< nothing comes any more
    };

    /// Takes what is there; nothing, if nothing is.
    [[nodiscard]] Taken take();

    /// @param wake  is called when something is there that was not, on whichever thread; must not
    ///              block. Once at once, if something is there already.
    void setWake(std::function<void()> wake);

    void add(std::string_view text);
    void end();

  private:
    struct State {
        std::string text;
        bool isEnded = false;
        std::function<void()> wake;
    };

    KestrinInternal::Guarded<State> state_;
};

}  // namespace KestrinProfileServer
