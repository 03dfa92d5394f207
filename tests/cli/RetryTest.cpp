#include <atomic>
#include <string>
#include <vector>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::httpReply;
using TestSupport::RawConnection;
using TestSupport::RawServer;

/// A service that gives out binds, and is busy so many times before it takes a change.
class Retry : public CommandLine {
  protected:
    void SetUp() override { configureWatchList(server.url("")); }

    Result add(std::vector<std::string> more = {}) {
        std::vector<std::string> arguments{"watchlist", "add", "v1"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runConfigured(std::move(arguments));
    }

    std::string replyTo(const std::string& request) {
        if (request.starts_with("POST")) return httpReply(200, R"({"profileId":"p","token":"t"})");
        ++changes;
        return busy-- > 0 ? httpReply(503, "{}", fields.load()) : httpReply(200, "{}");
    }

    std::atomic<int> busy = 0;
    std::atomic<int> changes = 0;
    std::atomic<const char*> fields = "";
    RawServer server{[this](RawConnection& connection) {
        while (const auto request = connection.readRequest())
            connection.send(replyTo(*request));
    }};
};

TEST_F(Retry, WhatFailedIsSentOnceMore) {
    busy = 1;
    const auto result = add();
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_THAT(result.errors, IsEmpty());
    EXPECT_EQ(changes, 2);
}

TEST_F(Retry, AnOutageIsNotMadeWorse) {
    busy = 1000;
    const auto result = add();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors, HasSubstr("503"));
    EXPECT_EQ(changes, 2);
}

TEST_F(Retry, NothingIsRepeatedIfNobodyWantsIt) {
    busy = 1;
    EXPECT_EQ(add({"--no-retry"}).code, 1);
    EXPECT_EQ(changes, 1);
}

TEST_F(Retry, OneWhoWaitsForTheServiceHasItRepeatedMoreOften) {
    busy = 2;
    const auto result = add({"--retry"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(changes, 3);
}

TEST_F(Retry, AServiceThatAsksForMoreTimeThanThereIsIsNotWaitedFor) {
    busy = 1;
    fields = "Retry-After: 3600\r\n";
    EXPECT_EQ(add({"--retry"}).code, 1);
    EXPECT_EQ(changes, 1);
}

TEST_F(Retry, TheLogSaysWhatIsRepeatedAndWhatIsNot) {
    busy = 1000;
    const auto result = add({"-v"});
    EXPECT_THAT(result.errors,
                AllOf(testing::ContainsRegex(
                          "personalization-watchlist-add-video: attempt 2 of 4 in [0-9]+ ms, "
                          "after 503\n"),
                      HasSubstr("not repeated after attempt 2 of 4: 503, and the budget for "
                                "repeats is used up\n")));
    changes = 0;
    EXPECT_THAT(add({"-v", "--no-retry"}).errors, Not(HasSubstr("repeated")));
}

TEST_F(Retry, MoreOftenAndNeverExcludeEachOther) {
    EXPECT_EQ(add({"--retry", "--no-retry"}).code, 2);
}

}  // namespace
