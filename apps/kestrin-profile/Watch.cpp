#include "Watch.hpp"

#include <chrono>
#include <optional>

#include <fmt/format.h>

#include "Format.hpp"

namespace KestrinProfileCLI {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr Seconds usualPeriod{2};
constexpr Seconds shortestPeriod{0.1};
constexpr Seconds longestPeriod{86400};

Seconds periodOf(const std::string& text) {
    if (text.empty()) return usualPeriod;
    if (const auto period = secondsOf(text, shortestPeriod, longestPeriod)) return *period;
    throw CommandError({ExitCode::usage, fmt::format("'{}' is not a period", text),
                        "give --watch a number of seconds from 0.1 to 86400, or none for 2"});
}

/// Shows what somebody looks at, time and again.
class Watch {
  public:
    Watch(Session& session, const MakeLines& makeLines, Seconds period)
        : session_(session), makeLines_(makeLines), period_(period) {}

    ExitCode follow() {
        do {
            try {
                draw(makeLines_());
                noted_.clear();
            } catch (...) {
                const Failure failure = describe(std::current_exception());
                if (failure.code == ExitCode::interrupted) break;
                if (failure.code != ExitCode::network) throw;
                note(failure.message);
            }
        } while (session_.interruption().pause(period_));
        return ExitCode::interrupted;
    }

  private:
    void draw(std::vector<std::string> lines) {
        const bool redraws = session_.terminal.canRedraw() && !session_.options.json;
        if (redraws) {
            lines.insert(lines.begin(), session_.terminal.styled(
                                            Style::faint, fmt::format("every {} s; Ctrl-C ends",
                                                                      period_.count())));
            session_.terminal.redraw(lines);
        } else if (lines != shown_) {
            print(lines);
        }
        shown_ = std::move(lines);
    }

    void print(const std::vector<std::string>& lines) const {
        if (!shown_.empty() && !session_.options.json) session_.terminal.line("");
        for (const auto& line : lines)
            session_.terminal.line(line);
        static_cast<void>(session_.terminal.flush());
    }

    /// Says what is wrong, once.
    void note(const std::string& message) {
        if (message != noted_) session_.terminal.note("still trying: " + printable(message));
        noted_ = message;
    }

    Session& session_;
    const MakeLines& makeLines_;
    Seconds period_;
    std::vector<std::string> shown_;
    std::string noted_;
};

}  // namespace

void addWatch(CLI::App& command, WatchOptions& options) {
    options.asked =
        command
            .add_option("--watch", options.seconds,
                        "Show it again every SECONDS (default 2) until Ctrl-C: redrawn on a "
                        "terminal, otherwise printed after each change")
            ->type_name("SECONDS")
            ->expected(0, 1);
}

ExitCode show(Session& session, const WatchOptions& options, const MakeLines& makeLines) {
    if (options.asked->count() > 0)
        return Watch(session, makeLines, periodOf(options.seconds)).follow();
    for (const auto& line : makeLines()) {
        session.interruption().check();
        session.terminal.line(line);
    }
    return ExitCode::ok;
}

}  // namespace KestrinProfileCLI
