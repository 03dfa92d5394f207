#include <KestrinHousehold/outbox/internal/Supersession.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::internal::listChangeOf;
using KestrinHousehold::internal::supersedes;

namespace {

/// Two writes one after the other, and what of the first is still to be sent.
struct Pair {
    const char* name;
    OutboxWrite earlier;
    OutboxWrite later;
    bool isDropped;
    std::optional<OutboxWrite> sent{};  ///< what the later one becomes; absent: it stays as it is
};

UserProfileElement show(std::string id, std::optional<Types> type = {}) {
    return UserProfileElement(std::move(id), type);
}

std::vector<Pair> pairs() {
    const auto add = [](auto item) { return write(Op::addFavoriteShow, item); };
    const auto remove = [](auto item) { return write(Op::removeFavoriteShow, item); };
    const auto clear = write(Op::clearFavorites);
    const auto forget = [](auto item) { return write(Op::removeVideoFromHistory, item); };
    return {
        {"add, add", add("a"), add("a"), true},
        {"add, add another", add("a"), add("b"), false},
        {"add, remove", add("a"), remove("a"), true},
        {"add, remove another", add("a"), remove("b"), false},
        {"add, clear", add("a"), clear, true},
        {"remove, add that says all", remove("a"), add("a"), true},
        {"remove, add another", remove("a"), add("b"), false},
        {"remove, remove", remove("a"), remove("a"), true},
        {"remove, remove another", remove("a"), remove("b"), false},
        {"remove, clear", remove("a"), clear, true},
        {"clear, add", clear, add("a"), false},
        {"clear, remove", clear, remove("a"), false},
        {"clear, clear", clear, clear, true},

        {"position, position", progress("v", 1), progress("v", 2), true},
        {"position, earlier position", progress("v", 2), progress("v", 1), true},
        {"position, end", progress("v", 1), progress("v", 9, true), true},
        {"end, position", progress("v", 9, true), progress("v", 1), true, progress("v", 1, true)},
        {"remove, position", forget("v"), progress("v", 1), false},
        {"remove, position and end", forget("v"), progress("v", 1, false), true},
        {"position, remove", progress("v", 1), forget("v"), true},
        {"position, clear", progress("v", 1), write(Op::clearHistory), true},

        {"add, shows with it", add("a"), shows({show("b"), show("a")}), true,
         shows({show("b"), show("a", Types::show)})},
        {"add, shows with it twice", add("a"), shows({show("a"), show("a", Types::game)}), true,
         shows({show("a", Types::show), show("a", Types::game)})},
        {"add, shows without it", add("a"), shows({show("b")}), false},
        {"shows, add one of them", shows({show("a"), show("b")}), add("a"), false},
        {"shows, add the only one", shows({show("a")}), add("a"), true},
        {"shows, more shows", shows({show("a", Types::game), show("b")}),
         shows({show("b"), show("a"), show("c")}), true,
         shows({show("b"), show("a", Types::game), show("c")})},
        {"shows, fewer shows", shows({show("a"), show("b")}), shows({show("a")}), false},
        {"shows, remove one of them", shows({show("a"), show("b")}), remove("a"), false},
        {"shows, remove the only one", shows({show("a")}), remove("a"), true},
        {"shows, clear", shows({show("a"), show("b")}), clear, true},
        {"remove, shows that say all", remove("a"), shows({show("a", Types::show)}), true},
        {"remove, shows that do not", remove("a"), shows({show("a")}), false},

        {"search, the same", write(Op::addSearchHistory, "x"), write(Op::addSearchHistory, "x"),
         true},
        {"search, another", write(Op::addSearchHistory, "x"), write(Op::addSearchHistory, "y"),
         false},
        {"search, clear", write(Op::addSearchHistory, "x"), write(Op::deleteSearchHistory), true},
        {"watch list add, remove", write(Op::addVideoToWatchList, "v"),
         write(Op::removeFromWatchList, "v"), true},
        {"watch list remove, add", write(Op::removeFromWatchList, "v"),
         write(Op::addVideoToWatchList, "v"), true},
        {"watch list add, clear", write(Op::addVideoToWatchList, "v"), write(Op::clearWatchList),
         true},
    };
}

}  // namespace

TEST(Supersession, EachPairOfWritesIsDecidedByTheTable) {
    for (const auto& pair : pairs()) {
        auto later = pair.later;
        EXPECT_EQ(supersedes(later, pair.earlier), pair.isDropped) << pair.name;
        EXPECT_EQ(later, pair.sent.value_or(pair.later)) << pair.name;
    }
}

TEST(Supersession, LeavesTheServiceAsBothWritesWould) {
    for (const auto& pair : pairs()) {
        for (const auto& before : pairs()) {
            ModelService both;
            both.apply(before.earlier);
            both.apply(before.later);
            ModelService one = both;
            both.apply(pair.earlier);
            both.apply(pair.later);
            auto later = pair.later;
            if (!supersedes(later, pair.earlier)) one.apply(pair.earlier);
            one.apply(later);
            EXPECT_EQ(both.lists(), one.lists()) << before.name << "; " << pair.name;
        }
    }
}

TEST(Supersession, KnowsTheTwelveOperationsThatChangeLists) {
    std::size_t changes = 0;
    for (std::size_t at = 0; at < KestrinProfile::profileOperationCount; ++at)
        changes += listChangeOf(static_cast<Op>(at)).has_value() ? 1 : 0;
    EXPECT_EQ(changes, 12U);
    EXPECT_EQ(listChangeOf(Op::createProfile), std::nullopt);
}

TEST(Supersession, WhatChangesNoListHasNoItemsAndTakesNoPart) {
    const auto none = write(Op::createProfile, "a");
    EXPECT_EQ(listChangeOf(none.operation), std::nullopt);
    EXPECT_TRUE(KestrinHousehold::internal::itemsOf(none).empty());
    auto later = none;
    EXPECT_FALSE(supersedes(later, write(Op::addFavoriteShow, "a")));
    later = write(Op::clearFavorites);
    EXPECT_FALSE(supersedes(later, none));
    EXPECT_NE(listChangeOf(Op::addFavoriteShow), listChangeOf(Op::removeFavoriteShow));
    EXPECT_NE(listChangeOf(Op::addFavoriteShow), listChangeOf(Op::addVideoToHistory));
}
