#include <string>
#include <vector>

#include "BusyService.hpp"
#include "CommandLineFixture.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::BusyService;
using TestSupport::CommandLine;

/// The program, and a service that is busy.
class Retry : public CommandLine {
  protected:
    void SetUp() override { configureWatchList(server.url()); }

    Result add(std::vector<std::string> more = {}) {
        std::vector<std::string> arguments{"watchlist", "add", "v1"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runConfigured(std::move(arguments));
    }

    BusyService server;
};

TEST_F(Retry, WhatFailedIsSentOnceMore) {
    server.busy = 1;
    const auto result = add();
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_THAT(result.errors, IsEmpty());
    EXPECT_EQ(server.changes, 2);
}

TEST_F(Retry, AnOutageIsNotMadeWorse) {
    server.busy = 1000;
    const auto result = add();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors, HasSubstr("503"));
    EXPECT_EQ(server.changes, 2);
}

TEST_F(Retry, NothingIsRepeatedIfNobodyWantsIt) {
    server.busy = 1;
    EXPECT_EQ(add({"--no-retry"}).code, 1);
    EXPECT_EQ(server.changes, 1);
}

TEST_F(Retry, OneWhoWaitsForTheServiceHasItRepeatedMoreOften) {
    server.busy = 2;
    const auto result = add({"--retry"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(server.changes, 3);
}

TEST_F(Retry, AServiceThatAsksForMoreTimeThanThereIsIsNotWaitedFor) {
    server.busy = 1;
    server.headers = "Retry-After: 3600\r\n";
    EXPECT_EQ(add({"--retry"}).code, 1);
    EXPECT_EQ(server.changes, 1);
}

TEST_F(Retry, TheLogSaysWhatIsRepeatedAndWhatIsNot) {
    server.busy = 1000;
    const auto result = add({"-v"});
    EXPECT_THAT(result.errors,
                AllOf(testing::ContainsRegex(
                          "personalization-watchlist-add-video: attempt 2 of 4 in [0-9]+ ms, "
                          "after 503\n"),
                      HasSubstr("not repeated after attempt 2 of 4: 503, and the budget for "
                                "repeats is used up\n")));
    server.changes = 0;
    EXPECT_THAT(add({"-v", "--no-retry"}).errors, Not(HasSubstr("repeated")));
}

TEST_F(Retry, MoreOftenAndNeverExcludeEachOther) {
    EXPECT_EQ(add({"--retry", "--no-retry"}).code, 2);
}

}  // namespace
