#include <coroutine>
#include <exception>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/rx/Coroutine.hpp>
#include <HalvardSling/rx/Future.hpp>
#include <KestrinHousehold/session/Household.hpp>

#include "household/HouseholdFixture.hpp"

namespace {

using KestrinHousehold::ProfileSession;

/// The simplest coroutine: it begins at once, and nobody waits for it. Use your framework's.
struct Detached {
    struct promise_type {
        Detached get_return_object() noexcept { return {}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() noexcept {}
        void unhandled_exception() noexcept { std::terminate(); }
    };
};

// [coroutine]
/// Takes a video off the watch list once it is in the history, and counts what is left.
Detached finish(ProfileSession session, std::string videoID,
                std::shared_ptr<std::vector<std::string>> log) {
    try {
        co_await session.addHistoryVideo(videoID, std::chrono::minutes(90), true);
        co_await session.deleteWatchListVideo(videoID);
        const auto list = co_await session.watchList();
        log->push_back(std::to_string(list.elements ? list.elements->size() : 0) + " left");
    } catch (const std::exception& error) {
        log->push_back(error.what());
    }
}
// [end]

// [future]
/// For a thread that may block: a test, a tool, a background job. Never in a handler.
std::size_t watched(const ProfileSession& session) {
    const auto history = HalvardSling::toFuture(session.history()).get();
    return history.elements ? history.elements->size() : 0;
}
// [end]

using testing::ElementsAre;

class WaitingRecipe : public TestSupport::HouseholdFixture {
  protected:
    WaitingRecipe() { manager.storeBind({"parent", "t1"}); }

    KestrinHousehold::Household home_ = household();
};

TEST_F(WaitingRecipe, DoesOneThingAfterTheOtherInACoroutine) {
    transport->willAnswer(200, "{}");
    transport->willAnswer(200, "{}");
    transport->willAnswer(200, R"({"data":[]})");
    const auto log = std::make_shared<std::vector<std::string>>();
    finish(home_.session(), "v1", log);
    EXPECT_THAT(*log, ElementsAre("0 left"));
    EXPECT_THAT(sent(), ElementsAre("personalization-history-add-video with JWT t1",
                                    "personalization-watchlist-delete-video with JWT t1",
                                    "personalization-watchlist-get with JWT t1"));
}

TEST_F(WaitingRecipe, GivesAFutureWhereOneMayWait) {
    transport->willAnswer(200, R"({"data":[]})");
    EXPECT_EQ(watched(home_.session()), 0U);
}

}  // namespace
