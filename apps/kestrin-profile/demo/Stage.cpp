#include "Stage.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

#include <fmt/format.h>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>

#include "../Flights.hpp"

namespace KestrinProfileCLI {

using KestrinConfigManager::ConfigurationManager;

Stage::Stage(Session& session)
    : session_(session),
      transport_(std::make_shared<CountingTransport>(HalvardSling::defaultTransport())) {
    HalvardSling::setDefaultTransport(transport_);
}

void Stage::scene(std::string title) {
    scene_ = std::move(title);
    if (!session_.options.json) line("\n" + session_.terminal.marked(Mark::strong, scene_));
}

void Stage::step(const std::string& what, const std::function<std::string()>& play) {
    ++step_;
    try {
        report(what, play());
    } catch (...) {
        Failure failure = describe(std::current_exception());
        if (failure.code != ExitCode::interrupted)
            failure.message = fmt::format("step {}, {}: {}", step_, what, failure.message);
        throw CommandError(std::move(failure));
    }
}

void Stage::report(const std::string& what, const std::string& outcome) const {
    if (session_.options.json) {
        HalvardSling::JSONDictionary document;
        document.setText("scene", scene_);
        document.setInteger("step", step_);
        document.setText("what", what);
        document.setText("outcome", outcome);
        session_.terminal.json(document);
        return;
    }
    line(fmt::format("{} {}. {}", session_.terminal.marked(Mark::good, "ok"), step_, what));
    line("     " + printable(outcome));
    static_cast<void>(session_.terminal.flush());
}

void Stage::show(const std::string& title, const std::vector<std::string>& lines) const {
    const std::string indent = session_.options.json ? "" : "  ";
    if (!session_.options.json) line("\n" + session_.terminal.marked(Mark::strong, title));
    for (const auto& each : session_.options.json ? lines : shortened(lines))
        line(indent + each);
}

std::vector<std::string> Stage::shortened(const std::vector<std::string>& lines) const {
    constexpr std::size_t mostRows = 8;
    constexpr std::size_t around = 2;  // The heading, and the line that counts.
    if (lines.size() <= mostRows + around) return lines;
    std::vector<std::string> some(lines.begin(), lines.begin() + 1 + mostRows);
    some.push_back(session_.terminal.marked(
        Mark::faint, fmt::format("… {} more", lines.size() - mostRows - around)));
    some.push_back(lines.back());
    return some;
}

void Stage::close() const {
    if (session_.options.json) return;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin_;
    line(fmt::format("\n{} steps, {} requests, {:.1f} s", step_, sent(), taken.count()));
}

void Stage::require(bool holds, const std::string& what, const std::string& advice) {
    if (!holds) fail(what, advice);
}

void Stage::fail(const std::string& what, const std::string& advice) {
    throw CommandError({ExitCode::serviceError, "not so: " + what, advice});
}

void Stage::awaitAll(
    std::size_t count, std::size_t atOnce,
    const std::function<HalvardSling::Observable<HalvardSling::Response>(std::size_t index)>&
        request) const {
    std::exception_ptr failed;
    const bool whole =
        sendAll(session_.interruption(),
                {count, atOnce, request, [&](std::size_t, const std::exception_ptr& error) {
                     if (error && !failed) failed = error;
                     return failed ? Next::stop : Next::more;
                 }});
    if (!whole) throw CommandError({ExitCode::interrupted, "interrupted", {}});
    if (failed) std::rethrow_exception(failed);
}

void Stage::line(std::string_view text) const {
    session_.terminal.line(text);
}

Stage::ReactionCount::ReactionCount() : count_(std::make_shared<std::atomic<int>>(0)) {
    ConfigurationManager::sharedInstance().setForbiddenReplyHandler([count = count_] { ++*count; });
}

Stage::ReactionCount::~ReactionCount() {
    ConfigurationManager::sharedInstance().setForbiddenReplyHandler({});
}

}  // namespace KestrinProfileCLI
