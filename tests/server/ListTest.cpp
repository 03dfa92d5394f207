// The four lists of a profile.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

constexpr const char* address = "brand=kestrin&profile=parent&v=1";

class ListTest : public testing::Test {
  protected:
    explicit ListTest(const TestService::Change& change = [](ServiceSettings&) {})
        : service(change) {}

    static std::string videoIn(const std::string& list, const std::string& id) {
        return "/v1/" + list + "/video?video=" + id + "&" + address;
    }
    static std::string showTarget(const std::string& id) {
        return "/v1/favorites/show?show=" + id + "&" + address;
    }
    static std::string listTarget(const std::string& list) { return "/v1/" + list + "?" + address; }

    std::string watch(const std::string& id, const std::string& body = "") {
        return outcomeOf(client.call(parent, "PUT", videoIn("history", id), body));
    }
    std::string addLater(const std::string& id, const std::string& body = "") {
        return outcomeOf(client.call(parent, "PUT", videoIn("watchlist", id), body));
    }
    std::string favour(const std::string& id, const std::string& body = "") {
        return outcomeOf(client.call(parent, "PUT", showTarget(id), body));
    }
    std::string favourAll(const std::string& body) {
        return outcomeOf(
            client.call(parent, "POST", std::string("/v1/favorites/shows?") + address, body));
    }
    std::string search(const std::string& encodedText, const std::string& body = "") {
        return outcomeOf(client.call(parent, "POST",
                                     "/v1/searches?search=" + encodedText + "&" + address, body));
    }
    std::string idsIn(const std::string& list) { return client.idsOf(parent, listTarget(list)); }
    std::string bodyOf(const std::string& target) {
        return client.call(parent, "GET", target).body;
    }

    /// The protocol has no operation that reads searches, so the test looks into the database.
    std::vector<std::string> searches(const std::string& brand = "kestrin") {
        Connection connection(service.database(), Connection::Mode::readOnly);
        const auto profile = findProfile(connection, std::string("household"), "parent");
        std::vector<std::string> texts;
        for (const Entry& entry :
             entriesOf(connection, {profile->row, ListKind::searches, brand}, 1000)) {
            texts.push_back(entry.id);
        }
        return texts;
    }

    TestService service;
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
};

using Texts = std::vector<std::string>;

TEST_F(ListTest, anEmptyListHasItsNameAndSize) {
    for (const std::string list : {"history", "favorites", "watchlist"}) {
        EXPECT_EQ(bodyOf(listTarget(list)),
                  R"({"id":")" + list + R"(","maxSize":500,"elements":[]})");
    }
}

TEST_F(ListTest, anElementIsWrittenAsNumberTruthAndTimeInUTC) {
    EXPECT_EQ(watch("v1", R"({"isCompleted":"true","type":"VIDEO","progress":"1234"})"), "204");
    EXPECT_EQ(bodyOf(listTarget("history")),
              R"({"id":"history","maxSize":500,"elements":[{"id":"v1","type":"VIDEO",)"
              R"("progress":1234,"isCompleted":true,)"
              R"("autoAddTimestamp":"2017-03-09T18:25:43.511Z"}]})");
}

TEST_F(ListTest, absentValuesAreLeftOutAndNeverNull) {
    EXPECT_EQ(watch("v1"), "204");
    EXPECT_EQ(watch("v2", "{}"), "204");
    EXPECT_EQ(bodyOf(listTarget("history")),
              R"({"id":"history","maxSize":500,"elements":[)"
              R"({"id":"v2","autoAddTimestamp":"2017-03-09T18:25:43.511Z"},)"
              R"({"id":"v1","autoAddTimestamp":"2017-03-09T18:25:43.511Z"}]})");
}

TEST_F(ListTest, theHistoryIsNewestFirstAndAVideoSeenAgainMovesToTheFront) {
    for (const char* id : {"a", "b", "c"})
        watch(id);
    EXPECT_EQ(idsIn("history"), "c b a");
    service.advance(std::chrono::milliseconds(1500));
    watch("a");
    EXPECT_EQ(idsIn("history"), "a c b");
    EXPECT_NE(bodyOf(videoIn("history", "a")).find("18:25:45.011Z"), std::string::npos);
    EXPECT_NE(bodyOf(videoIn("history", "b")).find("18:25:43.511Z"), std::string::npos);
}

TEST_F(ListTest, theOrderHoldsEvenWhenTheClockGoesBack) {
    watch("first");
    service.advance(-std::chrono::hours(1));
    watch("second");
    EXPECT_EQ(idsIn("history"), "second first");
}

TEST_F(ListTest, givenValuesReplaceAndAbsentOnesStay) {
    watch("v", R"({"isCompleted":"false","type":"VIDEO","progress":"10"})");
    watch("v", R"({"progress":"20"})");
    watch("v", R"({"isCompleted":"true"})");
    const auto element = boost::json::parse(bodyOf(videoIn("history", "v"))).at("elements").at(0);
    EXPECT_EQ(element.at("progress").as_int64(), 20);
    EXPECT_TRUE(element.at("isCompleted").as_bool());
    EXPECT_EQ(element.at("type").as_string(), "VIDEO");
    watch("v", R"({"isCompleted":"false","progress":"0"})");
    const auto again = boost::json::parse(bodyOf(videoIn("history", "v"))).at("elements").at(0);
    EXPECT_EQ(again.at("progress").as_int64(), 0);
    EXPECT_FALSE(again.at("isCompleted").as_bool());
}

TEST_F(ListTest, progressMayBeAsLargeAsJSONKeepsExactly) {
    EXPECT_EQ(watch("v", R"({"progress":"9007199254740991"})"), "204");
    EXPECT_NE(bodyOf(videoIn("history", "v")).find("\"progress\":9007199254740991,"),
              std::string::npos);
    EXPECT_EQ(watch("v", R"({"progress":"9007199254740992"})"), "422 invalid-body");
}

TEST_F(ListTest, oneVideosHistoryHasOneElementOrNone) {
    watch("a", R"({"progress":"7"})");
    watch("b");
    const auto found = boost::json::parse(bodyOf(videoIn("history", "a")));
    EXPECT_EQ(found.at("id").as_string(), "history");
    EXPECT_EQ(found.at("maxSize").as_int64(), 500);
    ASSERT_EQ(found.at("elements").as_array().size(), 1U);
    EXPECT_EQ(found.at("elements").at(0).at("progress").as_int64(), 7);
    EXPECT_EQ(bodyOf(videoIn("history", "never")),
              R"({"id":"history","maxSize":500,"elements":[]})");
}

TEST_F(ListTest, favouritesAndWatchListHaveNoDuplicatesAndAreNewestFirst) {
    for (const char* id : {"a", "b", "a"}) {
        EXPECT_EQ(favour(id, R"({"type":"SHOW"})"), "204");
        EXPECT_EQ(addLater(id), "204");
    }
    EXPECT_EQ(idsIn("favorites"), "a b");
    EXPECT_EQ(idsIn("watchlist"), "a b");
}

TEST_F(ListTest, manyShowsAreAddedAsIfOneAfterAnother) {
    favour("old");
    favour("again");
    EXPECT_EQ(
        favourAll(R"({"elements":[{"id":"x","type":"SHOW"},{"id":"old"},{"id":"y"},{"id":"x"}]})"),
        "204");
    EXPECT_EQ(idsIn("favorites"), "x y old again");
    EXPECT_EQ(favourAll(R"({"elements":[]})"), "204");
    EXPECT_EQ(idsIn("favorites"), "x y old again");
}

TEST_F(ListTest, manyShowsAreAddedAllOrNone) {
    EXPECT_EQ(favourAll(R"({"elements":[{"id":"a"},{"id":"b"},{"id":""}]})"), "422 invalid-body");
    EXPECT_EQ(idsIn("favorites"), "");
}

TEST_F(ListTest, deletingOneLeavesTheOthersAndMayBeRepeated) {
    for (const char* id : {"a", "b"}) {
        watch(id);
        favour(id);
        addLater(id);
    }
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(outcomeOf(client.call(parent, "DELETE", videoIn("history", "a"))), "204");
        EXPECT_EQ(outcomeOf(client.call(parent, "DELETE", showTarget("a"))), "204");
        EXPECT_EQ(outcomeOf(client.call(parent, "DELETE", videoIn("watchlist", "a"))), "204");
    }
    for (const char* list : {"history", "favorites", "watchlist"})
        EXPECT_EQ(idsIn(list), "b");
}

TEST_F(ListTest, clearingEmptiesThatListOnlyAndMayBeRepeated) {
    const std::vector<std::string> lists{"history", "favorites", "watchlist"};
    watch("v");
    favour("v");
    addLater("v");
    search("v");
    for (std::size_t cleared = 0; cleared < lists.size(); ++cleared) {
        for (int round = 0; round < 2; ++round)
            EXPECT_EQ(outcomeOf(client.call(parent, "DELETE", listTarget(lists[cleared]))), "204");
        for (std::size_t each = 0; each < lists.size(); ++each)
            EXPECT_EQ(idsIn(lists[each]), each <= cleared ? "" : "v");
    }
    EXPECT_EQ(searches(), Texts{"v"});
}

TEST_F(ListTest, brandsAndProfilesHaveTheirOwnLists) {
    const Caller kid = client.create(parent, "Anna");
    watch("ours");
    client.call(parent, "PUT", "/v1/history/video?video=other&brand=else&profile=parent&v=1");
    const std::string kidList = "/v1/history?brand=kestrin&profile=" + kid.profileID + "&v=1";
    client.call(kid, "PUT",
                "/v1/history/video?video=kids&brand=kestrin&profile=" + kid.profileID + "&v=1");
    EXPECT_EQ(idsIn("history"), "ours");
    EXPECT_EQ(client.idsOf(parent, "/v1/history?brand=else&profile=parent&v=1"), "other");
    EXPECT_EQ(client.idsOf(kid, kidList), "kids");
    EXPECT_EQ(client.idsOf(parent, kidList), "kids");
    client.call(parent, "DELETE", listTarget("history"));
    EXPECT_EQ(client.idsOf(parent, "/v1/history?brand=else&profile=parent&v=1"), "other");
    EXPECT_EQ(client.idsOf(kid, kidList), "kids");
}

TEST_F(ListTest, searchesAreKeptNewestFirstWithoutDuplicates) {
    EXPECT_EQ(search("space%20ships", R"({"type":"TERM"})"), "204");
    EXPECT_EQ(search("a+b", R"({"type":"TERM"})"), "204");
    EXPECT_EQ(search("space%20ships"), "204");
    EXPECT_EQ(searches(), (Texts{"space ships", "a+b"}));
}

TEST_F(ListTest, deletingTheSearchesEmptiesThoseOfTheBrandWithAndWithoutABody) {
    const auto remove = [this](const std::string& brand, const std::string& body) {
        return outcomeOf(client.call(parent, "DELETE",
                                     "/v1/searches?brand=" + brand + "&profile=parent&v=1", body));
    };
    search("one");
    client.call(parent, "POST", "/v1/searches?search=two&brand=&profile=parent&v=1");
    EXPECT_EQ(remove("", R"({"type":"TERM"})"), "204");
    EXPECT_EQ(searches(""), Texts{});
    EXPECT_EQ(searches(), Texts{"one"});
    EXPECT_EQ(remove("kestrin", ""), "204");
    EXPECT_EQ(remove("kestrin", ""), "204");
    EXPECT_EQ(searches(), Texts{});
}

TEST_F(ListTest, anEntryNeedsAnIdentifier) {
    EXPECT_EQ(watch(""), "422 invalid-entry");
    EXPECT_EQ(favour(""), "422 invalid-entry");
    EXPECT_EQ(addLater(""), "422 invalid-entry");
    EXPECT_EQ(search(""), "422 invalid-entry");
}

class ShortListTest : public ListTest {
  protected:
    ShortListTest()
        : ListTest([](ServiceSettings& settings) { settings.limits.maxListSize = 3; }) {}
};

TEST_F(ShortListTest, theOldestEntriesAreDropped) {
    for (const char* id : {"a", "b", "c", "d", "a", "e"}) {
        watch(id);
        favour(id);
        addLater(id);
        search(id);
    }
    for (const char* list : {"history", "favorites", "watchlist"})
        EXPECT_EQ(idsIn(list), "e a d") << list;
    EXPECT_EQ(searches(), (Texts{"e", "a", "d"}));
    EXPECT_NE(bodyOf(listTarget("history")).find("\"maxSize\":3"), std::string::npos);
}

TEST_F(ShortListTest, manyShowsAtOnceAreBoundedToo) {
    EXPECT_EQ(favourAll(R"({"elements":[{"id":"a"},{"id":"b"},{"id":"c"},{"id":"d"},{"id":"e"}]})"),
              "204");
    EXPECT_EQ(idsIn("favorites"), "e d c");
}

TEST_F(ShortListTest, aShorterListIsReadAtOnceAndTrimmedByTheNextEntry) {
    for (const char* id : {"a", "b", "c"})
        watch(id);
    service.restart([](ServiceSettings& settings) { settings.limits.maxListSize = 2; });
    HouseholdClient again = service.client();
    EXPECT_EQ(again.idsOf(parent, listTarget("history")), "c b");
    EXPECT_EQ(outcomeOf(again.call(parent, "PUT", videoIn("history", "d"))), "204");
    EXPECT_EQ(again.idsOf(parent, listTarget("history")), "d c");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
