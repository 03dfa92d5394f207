#include <KestrinHousehold/outbox/internal/EntryLane.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::internal::EntryLane;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Numbers = std::vector<std::int64_t>;

constexpr std::size_t room = 10;
constexpr Scheduler::WallTime epoch{};

OutboxEntry entry(std::int64_t number, OutboxWrite write) {
    return {number, std::move(write)};
}

Numbers numbersOf(const std::vector<OutboxEntry>& entries) {
    Numbers numbers;
    for (const auto& one : entries)
        numbers.push_back(one.number);
    return numbers;
}

class EntryLaneTest : public testing::Test {
  protected:
    /// Plans an entry and keeps it.
    void add(std::int64_t number, OutboxWrite write) {
        ASSERT_TRUE(plan(number, std::move(write)));
        lane.keepPlan();
    }
    std::optional<std::ptrdiff_t> plan(std::int64_t number, OutboxWrite write,
                                       Scheduler::WallTime ownUntil = epoch + 1h) {
        return lane.plan(entry(number, std::move(write)), room, ownUntil);
    }
    Numbers waiting() const { return numbersOf(lane.entries()); }
    std::optional<Scheduler::WallTime> ownUntil(std::int64_t number) const {
        for (const auto& one : lane.entries())
            if (one.number == number) return one.ownUntil;
        ADD_FAILURE() << "no entry " << number;
        return std::nullopt;
    }

    EntryLane lane;
};

TEST_F(EntryLaneTest, whatIsPlannedIsNotSentBeforeItIsKept) {
    EXPECT_EQ(lane.next(), nullptr);
    EXPECT_EQ(plan(1, write(Op::addFavoriteShow, "a")), 1);
    EXPECT_EQ(lane.next(), nullptr);
    EXPECT_THAT(waiting(), IsEmpty());
    EXPECT_THAT(numbersOf(lane.planned()), ElementsAre(1));
    EXPECT_THAT(lane.keepPlan(), IsEmpty());
    ASSERT_NE(lane.next(), nullptr);
    EXPECT_EQ(lane.next()->number, 1);
}

TEST_F(EntryLaneTest, whatAPlanWouldDropIsNotSentMeanwhile) {
    add(1, write(Op::addFavoriteShow, "a"));
    EXPECT_EQ(plan(2, write(Op::removeFavoriteShow, "a")), 0);
    EXPECT_EQ(lane.next(), nullptr);
    EXPECT_EQ(lane.take(1), std::nullopt);
    EXPECT_EQ(lane.take(2), std::nullopt);
    EXPECT_EQ(lane.size(), 1U);
    EXPECT_THAT(lane.leaving(), ElementsAre(1));
}

TEST_F(EntryLaneTest, anAbandonedPlanLeavesAllAsBefore) {
    add(1, write(Op::addFavoriteShow, "a"));
    ASSERT_TRUE(plan(2, write(Op::removeFavoriteShow, "a")));
    lane.abandonPlan();
    EXPECT_THAT(waiting(), ElementsAre(1));
    EXPECT_THAT(lane.planned(), IsEmpty());
    EXPECT_THAT(lane.leaving(), IsEmpty());
    ASSERT_NE(lane.next(), nullptr);
    EXPECT_EQ(lane.next()->number, 1);
}

TEST_F(EntryLaneTest, aKeptPlanSaysWhatMadeEachDroppedEntryNeedless) {
    add(1, write(Op::addFavoriteShow, "a"));
    ASSERT_TRUE(plan(2, write(Op::removeFavoriteShow, "a")));
    ASSERT_TRUE(plan(3, write(Op::addFavoriteShow, "b")));
    ASSERT_TRUE(plan(4, write(Op::clearFavorites)));
    EXPECT_THAT(numbersOf(lane.planned()), ElementsAre(4));
    EXPECT_THAT(lane.leaving(), ElementsAre(1));
    std::vector<std::pair<std::int64_t, std::int64_t>> dropped;
    for (const auto& one : lane.keepPlan())
        dropped.emplace_back(one.entry.number, one.by);
    EXPECT_THAT(dropped, ElementsAre(std::pair(1, 2), std::pair(2, 4), std::pair(3, 4)));
    EXPECT_THAT(waiting(), ElementsAre(4));
}

TEST_F(EntryLaneTest, withoutRoomNothingIsPlanned) {
    add(1, write(Op::addFavoriteShow, "a"));
    EXPECT_EQ(lane.plan(entry(2, write(Op::addFavoriteShow, "b")), 0, epoch), std::nullopt);
    EXPECT_THAT(lane.planned(), IsEmpty());
    EXPECT_EQ(lane.size(), 1U);
    // What takes the place of another needs none.
    EXPECT_EQ(lane.plan(entry(2, write(Op::removeFavoriteShow, "a")), 0, epoch), 0);
}

TEST_F(EntryLaneTest, whatIsUnderWayIsNeitherDroppedNorTakenNorSentTwice) {
    add(1, write(Op::addFavoriteShow, "a"));
    lane.begin();
    EXPECT_EQ(lane.next(), nullptr);
    EXPECT_EQ(lane.take(1), std::nullopt);
    add(2, write(Op::removeFavoriteShow, "a"));
    EXPECT_THAT(waiting(), ElementsAre(1, 2));
    EXPECT_EQ(lane.takeUnderWay(epoch, false).number, 1);
    ASSERT_NE(lane.next(), nullptr);
    EXPECT_EQ(lane.next()->number, 2);
}

TEST_F(EntryLaneTest, anEntryThatIsPutBackIsSentAgain) {
    add(1, write(Op::addFavoriteShow, "a"));
    lane.begin();
    lane.end(epoch);
    ASSERT_NE(lane.next(), nullptr);
    EXPECT_EQ(lane.next()->number, 1);
}

TEST_F(EntryLaneTest, nothingBeforeAnEntryThatStaysIsDropped) {
    add(1, progress("v", 1));
    add(2, write(Op::removeVideoFromHistory, "v"));
    add(3, progress("v", 2));
    add(4, progress("v", 3));
    EXPECT_THAT(waiting(), ElementsAre(2, 4));
}

TEST_F(EntryLaneTest, whatWasUnderWayWhenTheListWasClearedIsNotTakenOverAcrossTheClearing) {
    add(1, progress("v", 900, true));
    lane.begin();
    add(2, write(Op::clearHistory));
    lane.end(epoch);
    add(3, progress("v", 5));
    ASSERT_THAT(waiting(), ElementsAre(1, 2, 3));
    EXPECT_EQ(lane.entries().back().write, progress("v", 5));
    // Another list or brand has been cleared of nothing of it.
    add(4, write(Op::clearFavorites));
    add(5, progress("v", 6));
    EXPECT_THAT(waiting(), ElementsAre(1, 2, 4, 5));
    add(6, write(Op::clearHistory));
    EXPECT_THAT(waiting(), ElementsAre(4, 6)) << "what is cleared twice need not be sent at all";
}

TEST_F(EntryLaneTest, otherItemsBrandsAndListsAreLeftAlone) {
    add(1, write(Op::addFavoriteShow, "a"));
    add(2, write(Op::addVideoToWatchList, "a"));
    auto elsewhere = write(Op::addFavoriteShow, "a");
    elsewhere.brandID = "another";
    add(3, elsewhere);
    add(4, write(Op::createProfile, "a"));
    add(5, write(Op::clearFavorites));
    EXPECT_THAT(waiting(), ElementsAre(2, 3, 4, 5));
}

TEST_F(EntryLaneTest, whatIsAddedBehindItsOwnItemUnderWayKnowsTheWorkOfThisDevice) {
    add(1, progress("v", 1));
    lane.begin();
    add(2, progress("v", 2));
    add(3, progress("w", 2));
    EXPECT_EQ(ownUntil(2), epoch + 1h);
    EXPECT_EQ(ownUntil(3), std::nullopt);
    lane.end(epoch + 5s);
    EXPECT_EQ(ownUntil(2), epoch + 5s);
}

TEST_F(EntryLaneTest, whatTakesTheirPlaceKnowsItForTheLatest) {
    add(1, progress("v", 1));
    lane.begin();
    add(2, progress("v", 2));
    EXPECT_EQ(lane.takeUnderWay(epoch + 5s, true).number, 1);
    add(3, progress("v", 3));
    EXPECT_THAT(waiting(), ElementsAre(3));
    EXPECT_EQ(ownUntil(3), epoch + 5s);
}

TEST_F(EntryLaneTest, whatWasSentIsNotedForLaterEntriesOfTheItemAndForAClear) {
    lane.restore(entry(1, progress("v", 1)));
    lane.restore(entry(2, write(Op::removeVideoFromHistory, "v")));
    lane.restore(entry(3, progress("w", 1)));
    lane.restore(entry(4, write(Op::clearHistory)));
    lane.restore(entry(5, write(Op::clearFavorites)));
    lane.begin();
    EXPECT_EQ(lane.takeUnderWay(epoch + 5s, true).number, 1);
    const auto changed = lane.takeChanged();
    EXPECT_THAT(numbersOf(changed), ElementsAre(2, 4));
    for (const auto& one : changed)
        EXPECT_EQ(one.ownUntil, epoch + 5s);
    EXPECT_THAT(lane.takeChanged(), IsEmpty());
    lane.putBackChanged(changed);
    EXPECT_THAT(numbersOf(lane.takeChanged()), ElementsAre(2, 4));
}

TEST_F(EntryLaneTest, whatWasNotSentOrLeavesNothingIsNotNoted) {
    lane.restore(entry(1, progress("v", 1)));
    lane.restore(entry(2, write(Op::clearHistory)));
    lane.restore(entry(3, progress("v", 2)));
    lane.begin();
    EXPECT_EQ(lane.takeUnderWay(epoch, false).number, 1);
    EXPECT_THAT(lane.takeChanged(), IsEmpty());
    lane.begin();
    EXPECT_EQ(lane.takeUnderWay(epoch, true).number, 2);
    EXPECT_THAT(lane.takeChanged(), IsEmpty());
}

TEST_F(EntryLaneTest, whatAPlanDropsIsWrittenOnlyIfItStays) {
    lane.restore(entry(1, progress("v", 1)));
    lane.restore(entry(2, write(Op::removeVideoFromHistory, "v")));
    lane.begin();
    EXPECT_EQ(lane.takeUnderWay(epoch + 5s, true).number, 1);
    ASSERT_TRUE(plan(3, write(Op::clearHistory)));
    EXPECT_THAT(lane.takeChanged(), IsEmpty());
    lane.abandonPlan();
    EXPECT_THAT(numbersOf(lane.takeChanged()), ElementsAre(2));
}

TEST_F(EntryLaneTest, whatIsGoneIsNotPutBack) {
    lane.restore(entry(1, progress("v", 1)));
    ASSERT_TRUE(lane.take(1));
    lane.putBackChanged({entry(1, progress("v", 1))});
    EXPECT_THAT(lane.takeChanged(), IsEmpty());
    EXPECT_TRUE(lane.empty());
    EXPECT_EQ(lane.take(1), std::nullopt);
}

TEST_F(EntryLaneTest, whatWaitsBehindTheOneUnderWayMayBeTakenBeforeThatEnds) {
    add(1, write(Op::addFavoriteShow, "a"));
    lane.begin();
    add(2, write(Op::removeFavoriteShow, "a"));
    ASSERT_TRUE(lane.take(2));
    lane.end(epoch + 1min);
    EXPECT_THAT(waiting(), ElementsAre(1));
    EXPECT_EQ(ownUntil(1), std::nullopt);
}

TEST_F(EntryLaneTest, whatIsSentIsNotTheOwnWorkOfAClearingOfAnotherBrand) {
    auto other = write(Op::clearFavorites);
    other.brandID = "another";
    add(1, write(Op::addFavoriteShow, "a"));
    lane.begin();
    add(2, other);
    add(3, write(Op::addFavoriteShow, "b"));
    add(4, write(Op::clearFavorites));
    EXPECT_EQ(lane.takeUnderWay(epoch + 1min, true).number, 1);
    EXPECT_EQ(ownUntil(2), std::nullopt);
    EXPECT_EQ(ownUntil(4), epoch + 1min);
}

TEST_F(EntryLaneTest, whatIsPlannedIsNotChangedBesides) {
    add(1, write(Op::addFavoriteShow, "a"));
    lane.begin();
    ASSERT_TRUE(plan(2, write(Op::removeFavoriteShow, "a")));
    EXPECT_EQ(lane.takeUnderWay(epoch + 1min, true).number, 1);
    EXPECT_THAT(lane.takeChanged(), IsEmpty()) << "it would be stored twice";
    ASSERT_THAT(numbersOf(lane.planned()), ElementsAre(2));
    EXPECT_EQ(lane.planned().front().ownUntil, epoch + 1min);
}

}  // namespace
