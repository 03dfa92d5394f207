// An application that has watched, stored and sent, and then does nothing between two lines that it
// writes. With a third argument it accepts a write there.
// Usage: IdleProgram CONFIGURATION FILE [busy]

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>
#include <support/Observed.hpp>
#include <support/SystemCalls.hpp>
#include <support/Waiting.hpp>
#include <unistd.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/LaterSession.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>
#include <KestrinHousehold/playback/PlaybackReporter.hpp>
#include <KestrinHousehold/session/Household.hpp>

namespace {

using namespace KestrinHousehold;
using namespace std::chrono_literals;
using TestSupport::eventually;
using TestSupport::Observed;

bool say(std::string_view line) {
    return ::write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

int failed(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    return 1;
}

/// Whether no time and no task wakes any thread but this one.
bool isIdle() {
    return std::ranges::all_of(TestSupport::otherThreads(), &TestSupport::isWaitingWithoutEnd);
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) return failed("usage: IdleProgram CONFIGURATION FILE [busy]");
    if (!KestrinConfigManager::ConfigurationManager::sharedInstance().load(arguments[1]).empty())
        return failed("the configuration is refused");
    const Household household;
    const auto outbox = std::make_shared<Outbox>(std::make_shared<SQLiteOutboxStore>(arguments[2]),
                                                 std::make_shared<HouseholdDelivery>(household),
                                                 household.scheduler());
    PlaybackReporter reporter({"parent", "kestrin", "v1"}, keepIn(outbox), household.scheduler());
    const auto session = household.session();
    if (!Observed(session.addFavoriteShow("s1")).completed()) return failed("no service");
    reporter.positionIs(62s);
    reporter.paused();
    const LaterSession later(session, outbox);
    if (!Observed(later.addWatchListVideo("v2")).completed()) return failed("not kept");
    if (Observed(outbox->settled()).values() != std::vector<OutboxState>{{0, 0}})
        return failed("not all was sent");
    if (!eventually(&isIdle)) return failed("something waits for a time");
    const auto threads = TestSupport::otherThreads();

    if (!say("idle from here\n")) return 1;
    if (count > 3) static_cast<void>(Observed(later.addFavoriteShow("s2")).completed());
    TestSupport::spin(1'000'000);
    if (!say("idle to here\n")) return 1;

    if (count > 3) return 0;
    if (!isIdle() || TestSupport::otherThreads() != threads) return failed("a thread came or went");
    return 0;
}
