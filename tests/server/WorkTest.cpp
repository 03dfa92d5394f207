// How much the database has to do for one request, in steps of SQLite's machine: whatever a client
// asks for, the writes of others wait for little.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "Support.hpp"
#include "support/Waiting.hpp"

namespace KestrinProfileServer::Testing {
namespace {

constexpr int stepsPerCall = 100;
/// Some milliseconds.
constexpr std::int64_t allowed = 400'000;
constexpr const char* favorites = "/v1/favorites?brand=b&profile=parent&v=1";
constexpr const char* addShows = "/v1/favorites/shows?brand=b&profile=parent&v=1";

std::atomic<std::int64_t> steps = 0;
/// The most steps between two commits of one thread.
std::atomic<std::int64_t> largestTransaction = 0;
thread_local std::int64_t transactionSteps = 0;

int countStep(void*) {
    steps += stepsPerCall;
    transactionSteps += stepsPerCall;
    return 0;
}

int countCommit(void*) {
    // One thread writes.
    largestTransaction = std::max(largestTransaction.load(), transactionSteps);
    transactionSteps = 0;
    return 0;
}

int countSteps(sqlite3* connection, char**, const sqlite3_api_routines*) {
    sqlite3_progress_handler(connection, stepsPerCall, countStep, nullptr);
    sqlite3_commit_hook(connection, countCommit, nullptr);
    return SQLITE_OK;
}

/// Counts the steps of all connections that are opened while it lives.
class Counting {
  public:
    Counting() { sqlite3_auto_extension(entry); }
    ~Counting() { sqlite3_cancel_auto_extension(entry); }
    Counting(const Counting&) = delete;
    Counting& operator=(const Counting&) = delete;

  private:
    // The function's type is not the declared one, by SQLite's design.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast)
    void (*entry)() = reinterpret_cast<void (*)()>(countSteps);
};

class WorkTest : public testing::Test {
  protected:
    /// The steps of one request that succeeds.
    std::int64_t stepsOf(const std::string& method, const std::string& target,
                         const std::string& body = "") {
        const std::int64_t before = steps;
        const std::string outcome = outcomeOf(client.call(parent, method, target, body));
        EXPECT_TRUE(outcome == "204" || outcome == "200") << outcome;
        return steps - before;
    }

    /// A body of "add shows" that is as large as one may be.
    static std::string fullBody(const std::string& prefix, const std::string& rest = "\"}") {
        constexpr std::size_t largest = 1024UL * 1024 - 64;
        std::string elements;
        for (int show = 0; elements.size() < largest - rest.size(); ++show) {
            elements +=
                (show == 0 ? R"({"id":")" : R"(,{"id":")") + prefix + std::to_string(show) + rest;
        }
        return R"({"elements":[)" + elements + "]}";
    }

    const Counting counting;
    TestService service;
    HouseholdClient client = service.client();
    Caller parent = client.bind("parent");
};

TEST_F(WorkTest, aHugeAddTouchesOnlyWhatRemains) {
    for (const std::string prefix : {"", "a", "b"}) {
        EXPECT_LE(stepsOf("POST", addShows, fullBody(prefix)), allowed) << prefix;
        EXPECT_LE(stepsOf("POST", addShows, fullBody(prefix)), allowed) << prefix;
    }
    const auto list = client.call(parent, "GET", favorites).json();
    EXPECT_EQ(list.at("elements").as_array().size(), 500U);
}

TEST_F(WorkTest, theSameEntryManyTimesIsOneEntry) {
    std::string body = R"({"elements":[{"id":"a","type":"first"})";
    for (int time = 0; time < 90'000; ++time)
        body += R"(,{"id":"a"})";
    EXPECT_LE(stepsOf("POST", addShows, body + "]}"), allowed / 100);
    EXPECT_EQ(client.call(parent, "GET", favorites).json().at("elements").as_array().size(), 1U);
}

TEST_F(WorkTest, manyEntriesThatEndInOneIdentifierOfFullLength) {
    EXPECT_LE(stepsOf("POST", addShows, fullBody("", std::string(2000, 'x') + "\"}")), allowed);
}

TEST_F(WorkTest, everyOperationOnAFullListIsShort) {
    stepsOf("POST", addShows, fullBody("a"));
    EXPECT_LE(stepsOf("GET", favorites), allowed);
    for (const char* id : {"new", "a94000", "nothing"}) {
        const std::string show =
            std::string("/v1/favorites/show?show=") + id + "&brand=b&profile=parent&v=1";
        EXPECT_LE(stepsOf("PUT", show), allowed / 10) << id;
        EXPECT_LE(stepsOf("DELETE", show), allowed / 10) << id;
    }
    for (int search = 0; search < 600; ++search) {
        EXPECT_LE(stepsOf("POST", "/v1/searches?search=" + std::to_string(search) +
                                      "&brand=b&profile=parent&v=1"),
                  allowed / 10);
    }
    EXPECT_LE(stepsOf("DELETE", "/v1/searches?brand=b&profile=parent&v=1"), allowed);
    EXPECT_LE(stepsOf("DELETE", favorites), allowed);
}

TEST_F(WorkTest, aProfileWithManyEntriesIsDeletedPieceByPiece) {
    constexpr int brands = 100;
    const Caller kid = client.create(parent, "Kid");
    for (int brand = 0; brand < brands; ++brand) {
        std::string body = R"({"elements":[{"id":"s")";
        for (int show = 0; show < 500; ++show)
            body += R"(},{"id":"show-)" + std::to_string(show) + "\"";
        ASSERT_EQ(outcomeOf(client.call(kid, "POST",
                                        "/v1/favorites/shows?brand=" + std::to_string(brand) +
                                            "&profile=" + kid.profileID + "&v=1",
                                        body + "}]}")),
                  "204");
    }
    largestTransaction = 0;
    EXPECT_EQ(
        outcomeOf(client.call(parent, "DELETE", "/v1/profile?target=" + kid.profileID + "&v=1")),
        "204");
    EXPECT_EQ(outcomeOf(client.call(kid, "GET", favorites)), "403 token-refused");
    // Whoever comes next gets another number in the database, and no list of somebody else's.
    const Caller next = client.create(parent, "Kid");
    EXPECT_EQ(client.idsOf(next, "/v1/favorites?brand=1&profile=" + next.profileID + "&v=1"), "");
    EXPECT_TRUE(TestSupport::eventually([&] {
        Connection connection(service.database(), Connection::Mode::readOnly);
        Query count(connection, "SELECT count(*) FROM entries");
        count.next();
        return count.integer(0) == 0;
    }));
    EXPECT_LE(largestTransaction, allowed / 4);
}

TEST_F(WorkTest, whatADeletedProfileHasLeftIsRemovedAfterARestart) {
    service.restart();
    {
        Connection connection(service.database(), Connection::Mode::readWrite);
        Query(connection,
              "INSERT INTO entries (profile, list, brand, position, id, added)"
              " VALUES (7, 'history', 'b', 1, 'v', 0)")
            .run();
        Query(connection, "INSERT INTO purges (profile) VALUES (7)").run();
    }
    service.restart();
    EXPECT_TRUE(TestSupport::eventually([&] {
        Connection connection(service.database(), Connection::Mode::readOnly);
        Query count(connection,
                    "SELECT (SELECT count(*) FROM entries) + (SELECT count(*) FROM purges)");
        count.next();
        return count.integer(0) == 0;
    }));
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
