#include <KestrinHousehold/outbox/internal/Comparison.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::internal::compare;
using KestrinHousehold::internal::Comparison;
using KestrinHousehold::internal::isComparable;
using KestrinHousehold::internal::listIn;
using testing::ElementsAre;
using testing::IsEmpty;
using Verdict = Comparison::Verdict;

namespace {

constexpr Scheduler::WallTime accepted = Scheduler::WallTime(std::chrono::seconds(1'700'000'000));
/// The service tells its time to a second.
constexpr auto asOld = accepted + 1s;
constexpr auto newer = accepted + 2s;

Comparison comparedWith(const OutboxWrite& write, const std::string& body) {
    const auto list = listIn(reply(200, body));
    if (!list) ADD_FAILURE() << "no list: " << body;
    return list ? compare(write, accepted, *list) : Comparison{Verdict::stale};
}

TEST(Comparison, allListsButTheSearchesCanBeCompared) {
    EXPECT_TRUE(isComparable(progress("v", 1)));
    EXPECT_TRUE(isComparable(write(Op::clearWatchList)));
    EXPECT_TRUE(isComparable(write(Op::removeFavoriteShow, "s")));
    EXPECT_FALSE(isComparable(write(Op::addSearchHistory, "x")));
    EXPECT_FALSE(isComparable(write(Op::deleteSearchHistory)));
    EXPECT_FALSE(isComparable(write(Op::createProfile)));
}

TEST(Comparison, whatTheServiceHasNotOrHasFromBeforeIsSent) {
    for (const auto& late :
         {progress("v", 1), write(Op::removeVideoFromHistory, "v"), write(Op::clearHistory)})
        for (const auto& body : {listOf({}), listOf({{"v", asOld}}), listOf({{"w", asOld}}),
                                 bodyOf({R"({"id": "v"})"})}) {
            const auto comparison = comparedWith(late, body);
            EXPECT_EQ(comparison.verdict, Verdict::send) << body;
            EXPECT_THAT(comparison.writes, ElementsAre(late)) << body;
        }
}

TEST(Comparison, whatIsNewerStays) {
    EXPECT_EQ(comparedWith(progress("v", 1), listOf({{"v", newer}})).verdict, Verdict::stale);
    EXPECT_EQ(comparedWith(write(Op::removeFavoriteShow, "s"), listOf({{"s", newer}})).verdict,
              Verdict::stale);
    EXPECT_EQ(comparedWith(progress("v", 1), listOf({{"w", newer}})).verdict, Verdict::send);
}

TEST(Comparison, whatSaysTheSameIsThereAlready) {
    const auto there = listOf({{"v", newer}}, R"(, "progress": 7, "isCompleted": true)");
    EXPECT_EQ(comparedWith(progress("v", 7), there).verdict, Verdict::alreadyThere);
    EXPECT_EQ(comparedWith(progress("v", 7, true), there).verdict, Verdict::alreadyThere);
    EXPECT_EQ(comparedWith(progress("v", 8), there).verdict, Verdict::stale);
    EXPECT_EQ(comparedWith(progress("v", 7, false), there).verdict, Verdict::stale);
    EXPECT_EQ(comparedWith(write(Op::addVideoToWatchList, "v"), there).verdict,
              Verdict::alreadyThere);
}

TEST(Comparison, ofManyShowsThoseThatCameLaterAreLeftOut) {
    const UserProfileElement a("a");
    const UserProfileElement b("b");
    const UserProfileElement nameless;
    const auto comparison =
        comparedWith(shows({a, b, nameless}), listOf({{"a", newer}, {"b", asOld}}));
    EXPECT_EQ(comparison.verdict, Verdict::send);
    EXPECT_THAT(comparison.writes, ElementsAre(shows({b, nameless})));
    EXPECT_EQ(comparedWith(shows({a, b}), listOf({{"a", newer}, {"b", newer}})).verdict,
              Verdict::alreadyThere);
}

TEST(Comparison, ofAListWithNewerEntriesTheOlderAreRemovedOneByOne) {
    const auto body = bodyOf({elementOf("a", asOld), elementOf("b", newer), elementOf("", asOld),
                              R"({"type": "SHOW"})", elementOf("c", asOld)});
    const std::pair<Op, Op> clears[] = {{Op::clearHistory, Op::removeVideoFromHistory},
                                        {Op::clearFavorites, Op::removeFavoriteShow},
                                        {Op::clearWatchList, Op::removeFromWatchList}};
    for (const auto& [clear, removal] : clears) {
        const auto comparison = comparedWith(write(clear), body);
        EXPECT_EQ(comparison.verdict, Verdict::send);
        EXPECT_THAT(comparison.writes, ElementsAre(write(removal, "a"), write(removal, "c")));
    }
    const auto nothingLeft = comparedWith(write(Op::clearHistory), listOf({{"b", newer}}));
    EXPECT_EQ(nothingLeft.verdict, Verdict::stale);
    EXPECT_THAT(nothingLeft.writes, IsEmpty());
}

TEST(Comparison, whatCannotBeComparedIsSent) {
    auto list = listIn(reply(200, listOf({{"v", newer}})));
    ASSERT_TRUE(list);
    EXPECT_EQ(compare(write(Op::createProfile), accepted, *list).verdict, Verdict::send);
    list->elements.reset();
    EXPECT_EQ(compare(progress("v", 1), accepted, *list).verdict, Verdict::send);
}

TEST(Comparison, aReplyWithoutAListHasNone) {
    for (const auto* const body : {"", "{", "[]", "{}", R"({"id": "history", "maxSize": 5})"})
        EXPECT_EQ(listIn(reply(200, body)), std::nullopt) << body;
}

}  // namespace
