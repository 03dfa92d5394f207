#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/rx/Observable.hpp>

#include "../ExitCode.hpp"
#include "../Session.hpp"
#include "CountingTransport.hpp"

namespace KestrinProfileCLI {

/// An error that a step waited for, and how often the forbidden-reply reaction came meanwhile.
struct Refusal {
    HalvardSling::SlingError error;
    int reactions = 0;
};

/// Where the demo plays: prints the steps, checks them, and counts what is sent. A step that is not
/// as it should be ends the demo with a `CommandError` that names it.
class Stage {
  public:
    /// @param session  configured; from now on its requests are counted
    explicit Stage(Session& session);

    /// Begins a scene.
    void scene(std::string title);

    /// Plays a step and prints it.
    /// @param what  what is done, e.g. "bind for the parent"
    /// @param play  does it and says what came of it
    void step(const std::string& what, const std::function<std::string()>& play);

    /// Prints a list: its title, the heading, the first lines, and how many more there are.
    /// @param lines  the heading, the rows, and a line that counts them
    void show(const std::string& title, const std::vector<std::string>& lines) const;

    /// Ends the demo with a line about the whole.
    void close() const;

    /// Ends the demo unless a condition holds.
    /// @param what    the condition, e.g. "one request is sent"
    /// @param advice  what to do where it does not; may be empty
    static void require(bool holds, const std::string& what, const std::string& advice = {});

    /// Waits for the one value of a sequence.
    template <class T>
    [[nodiscard]] T await(const HalvardSling::Observable<T>& source) const {
        return session_.await(source);
    }

    /// The error of a sequence that has to fail with this kind of error.
    template <class Error, class T>
    [[nodiscard]] Error errorOf(const HalvardSling::Observable<T>& source) const {
        try {
            static_cast<void>(await(source));
        } catch (const Error& error) {
            return error;
        }
        fail("it fails, as it must", {});
    }

    /// The error of a sequence that the service or the network has to end.
    template <class T>
    [[nodiscard]] Refusal refusalOf(const HalvardSling::Observable<T>& source) const {
        const ReactionCount reactions;
        auto error = errorOf<HalvardSling::SlingError>(source);
        return {std::move(error), reactions.count()};
    }

    /// Sends so many requests, several in flight at once, which all have to succeed.
    void awaitAll(
        std::size_t count, std::size_t atOnce,
        const std::function<HalvardSling::Observable<HalvardSling::Response>(std::size_t index)>&
            request) const;

    /// How many requests were sent so far.
    [[nodiscard]] std::size_t sent() const noexcept { return transport_->sent(); }
    /// How many were in flight at once at most.
    [[nodiscard]] std::size_t mostInFlight() const noexcept { return transport_->mostOpen(); }

    [[nodiscard]] Session& session() const noexcept { return session_; }

  private:
    /// Counts the reactions to forbidden replies for as long as it lives.
    class ReactionCount {
      public:
        ReactionCount();
        ReactionCount(const ReactionCount&) = delete;
        ReactionCount(ReactionCount&&) = delete;
        ReactionCount& operator=(const ReactionCount&) = delete;
        ReactionCount& operator=(ReactionCount&&) = delete;
        ~ReactionCount();
        [[nodiscard]] int count() const noexcept { return *count_; }

      private:
        std::shared_ptr<std::atomic<int>> count_;
    };

    [[noreturn]] static void fail(const std::string& what, const std::string& advice);
    void report(const std::string& what, const std::string& outcome) const;
    [[nodiscard]] std::vector<std::string> shortened(const std::vector<std::string>& lines) const;
    void line(std::string_view text) const;

    Session& session_;
    std::shared_ptr<CountingTransport> transport_;
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    std::string scene_;
    int step_ = 0;
};

}  // namespace KestrinProfileCLI
