#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/LaterSession.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>
#include <KestrinHousehold/playback/PlaybackReporter.hpp>
#include <KestrinHousehold/session/Household.hpp>

#include "household/HouseholdFixture.hpp"
#include "support/Program.hpp"

namespace {

// [outbox]
/// What is written while somebody watches. It goes out when it can, also after a restart.
class Diary {
  public:
    Diary(const KestrinHousehold::Household& household, const std::filesystem::path& file)
        : scheduler_(household.scheduler()),
          outbox_(std::make_shared<KestrinHousehold::Outbox>(
              std::make_shared<KestrinHousehold::SQLiteOutboxStore>(file),
              std::make_shared<KestrinHousehold::HouseholdDelivery>(household), scheduler_)) {}

    /// For the player: tell the reporter each position, pauses and the end.
    [[nodiscard]] std::unique_ptr<KestrinHousehold::PlaybackReporter> watching(
        const KestrinHousehold::ProfileSession& session, const std::string& videoID) const {
        const KestrinHousehold::PlaybackVideo video{session.profileID(), "kestrin", videoID};
        return std::make_unique<KestrinHousehold::PlaybackReporter>(
            video, KestrinHousehold::keepIn(outbox_), scheduler_);
    }

    /// For everything else for which later is fine: `later(session).addFavoriteShow("s1")`.
    [[nodiscard]] KestrinHousehold::LaterSession later(
        const KestrinHousehold::ProfileSession& session) const {
        return {session, outbox_};
    }

    /// To be called when the platform says that there is a network again.
    void networkIsBack() { outbox_->networkIsBack(); }

    [[nodiscard]] const KestrinHousehold::Outbox& outbox() const { return *outbox_; }

  private:
    std::shared_ptr<KestrinHousehold::Scheduler> scheduler_;
    std::shared_ptr<KestrinHousehold::Outbox> outbox_;
};
// [end]

using testing::HasSubstr;

class WatchingRecipe : public TestSupport::HouseholdFixture {
  protected:
    WatchingRecipe() {
        manager.storeBind({"parent", "t1"});
        transport->alwaysAnswer([this](const TransportRequest&) {
            return isInTunnel ? failure(Error::cannotConnect) : reply(200);
        });
    }

    std::size_t waiting(const Diary& diary) {
        const TestSupport::Observed settled(diary.outbox().settled());
        return settled.values().at(0).waiting;
    }

    std::atomic<bool> isInTunnel = true;
    TestSupport::TemporaryDirectory directory;
    KestrinHousehold::Household home;  // its time passes by itself
};

TEST_F(WatchingRecipe, SendsAfterTheTunnelWhatWasWatchedInIt) {
    Diary diary(home, directory / "outbox");
    const auto session = home.session();
    {
        const auto reporter = diary.watching(session, "v1");
        for (int second = 0; second <= 25; ++second)
            reporter->positionIs(std::chrono::seconds(second));
        reporter->paused();
    }
    EXPECT_GE(waiting(diary), 1U);  // a write that is just tried again is not superseded
    const std::size_t before = transport->requests().size();

    isInTunnel = false;
    diary.networkIsBack();
    EXPECT_EQ(waiting(diary), 0U);
    const auto requests = transport->requests();
    ASSERT_GT(requests.size(), before);
    EXPECT_EQ(requests.back().operation, "personalization-history-add-video");
    EXPECT_THAT(*requests.back().body, HasSubstr(R"("progress":"25")"));
}

TEST_F(WatchingRecipe, KeepsWhatWasAddedInTheTunnelOverARestart) {
    {
        const Diary diary(home, directory / "outbox");
        const TestSupport::Observed kept(diary.later(home.session()).addFavoriteShow("s1"));
        EXPECT_TRUE(kept.completed());
    }
    isInTunnel = false;
    const Diary diary(home, directory / "outbox");
    const TestSupport::Observed opening(diary.outbox().opening());
    EXPECT_EQ(opening.values().at(0).waiting, 1U);
    EXPECT_EQ(waiting(diary), 0U);
}

}  // namespace
