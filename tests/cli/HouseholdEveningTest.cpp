#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <regex>
#include <string>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "CommandLineFixture.hpp"
#include "support/Ports.hpp"
#include "support/RawServer.hpp"

namespace {

using HalvardSling::JSONDictionary;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::Program;
using TestSupport::RawServer;
using TestSupport::write;

class HouseholdEvening : public CommandLine {
  protected:
    void startBlockingService(std::vector<std::string> more = {}) {
        more.insert(more.end(), {"--block", "blocked"});
        startService(more);
    }

    Result play() {
        Program evening(command(), environment);
        const int code = evening.wait();
        return {code, evening.output(), evening.errors()};
    }

    /// The same with a service of its own, which it may take away.
    Result playWithOwnService(const std::vector<std::string>& more) {
        auto words = command();
        words.insert(words.end(), {"--", KESTRIN_SERVER, "--database", directory / "db", "--quiet",
                                   "--block", "blocked"});
        words.insert(words.end(), more.begin(), more.end());
        Program evening(words, environment);
        const int code = evening.wait();
        return {code, evening.output(), evening.errors()};
    }

    [[nodiscard]] std::vector<std::string> command() const {
        return {KESTRIN_EVENING, "--config", configuration};
    }

    /// @return the output of an evening that succeeds
    std::string playedEvening() {
        const auto result = play();
        EXPECT_EQ(result.code, 0) << result.errors;
        return result.output;
    }

    /// The names of the household's profiles.
    std::vector<std::string> names() {
        const auto parsed = JSONDictionary::parse(outputOf({"profiles", "list", "--json"}));
        const auto users = std::get<JSONDictionary>(parsed).dictionaries("data");
        std::vector<std::string> all;
        for (const auto& user : users.value())
            all.emplace_back(user.text("username").value_or(""));
        return all;
    }
};

/// Expects that the service was started twice, both times at one address.
void expectSamePortTwice(const std::string& evening) {
    const std::regex line("ready on (http://[^\n]*)");
    std::vector<std::string> addresses;
    for (std::sregex_iterator each(evening.begin(), evening.end(), line), end; each != end; ++each)
        addresses.push_back((*each)[1]);
    ASSERT_EQ(addresses.size(), 2U);
    EXPECT_EQ(addresses[0], addresses[1]);
}

/// A step as it is printed: its heading, and the line below it.
testing::Matcher<std::string> step(int number, const std::string& what,
                                   const std::string& outcome) {
    return HasSubstr("\nok " + std::to_string(number) + ". " + what + "\n     " + outcome);
}

TEST_F(HouseholdEvening, PlaysEveryStepOfTheEvening) {
    const auto result = playWithOwnService({"--max-size", "240"});
    EXPECT_EQ(result.code, 0) << result.errors;
    const std::string& evening = result.output;
    const std::vector<testing::Matcher<std::string>> steps{
        step(1, "bind for the parent",
             "parent requested, decoded and stored with one request; token masked, "),
        step(2, "the same again", "answered by the held bind, no request sent\n"),
        step(3, "bind for a blocked profile",
             "2 reactions, the parent's bind put back, the error delivered: "),
        step(4, "an unconfigured operation", "serviceNotConfigured"),
        step(5, "who is at home", "1 at home: Parent\n"),
        step(6, "two profiles are created and listed", "3 profiles: Parent, Anna, Ben\n"),
        step(7, "a name is refused",
             "'Anna' for Ben: 422, another profile of the household is already called 'Anna'; "
             "'Ben the Younger' is accepted\n"),
        step(8, "a profile is edited", "Ben with the owl is now Ben the Younger with the bear\n"),
        step(9, "the parent is refused",
             "to edit and to delete, no request sent: parentInvalidForOperation"),
        step(10, "shows become favourites", "2 one by one, 4 at once with one request"),
        step(11, "a history with progress", "300 videos, up to "),
        step(12, "a video is seen again", ""),
        step(13, "how far was it watched?", ""),
        step(14, "a watch list is worked off", "5 films, each removed as it was watched"),
        step(15, "searches are recorded and deleted", "4 recorded"),
        step(16, "Ben the Younger tries to delete Anna", "403, the token's profile may not act"),
        step(17, "the service is taken away while Anna watches", "process "),
        step(
            18, "the service is back, and everything arrives",
            "2 entries sent; film-8 is in front of the history, film-9 on the watch list; the list "
            "that was asked for meanwhile came; the binds are still good\n"),
        step(19, "both profiles are deleted", "Anna and Ben the Younger deleted")};
    for (const auto& each : steps)
        EXPECT_THAT(evening, each);
    EXPECT_THAT(evening,
                AllOf(HasSubstr(" was the last of 240 and is in front, at 0:12:34\n"),
                      HasSubstr("; the list keeps the newest 240, "),
                      HasSubstr("the service at http://127.0.0.1:"), HasSubstr("\n19 steps, ")));
    EXPECT_THAT(evening, testing::ContainsRegex(" ended; film-8 goes on to 1260 s, of which 1 "
                                                "position waits, and film-9 for the watch list; a "
                                                "list: .*no connection could be made"));
    expectSamePortTwice(evening);
    EXPECT_THAT(evening,
                AllOf(Not(HasSubstr("eyJ")), Not(HasSubstr("\x1b")), Not(HasSubstr("20. "))));
}

TEST_F(HouseholdEvening, LeavesAServiceAloneThatIsNotItsOwn) {
    startBlockingService();
    const std::string evening = playedEvening();
    EXPECT_THAT(evening, AllOf(step(17, "both profiles are deleted", "Anna and Ben"),
                               HasSubstr("\n17 steps, "), Not(HasSubstr("taken away"))));
    EXPECT_THAT(names(), testing::ElementsAre("Parent"));
}

TEST_F(HouseholdEvening, AServiceThatDoesNotStartIsSaid) {
    const auto result = playWithOwnService({"--no-such-option"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors, HasSubstr("did not start"));
}

TEST_F(HouseholdEvening, EndsItsServiceAlsoIfAStepFails) {
    const auto result = playWithOwnService({"--max-profiles", "2"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors, HasSubstr("step 6, two profiles are created and listed: "));
    std::smatch ready;
    ASSERT_TRUE(std::regex_search(result.output, ready, std::regex("ready on http://.*:([0-9]+)")));
    EXPECT_FALSE(TestSupport::isListening(static_cast<std::uint16_t>(std::stoul(ready[1]))));
}

TEST_F(HouseholdEvening, PrintsTheListsAsTheyAreInTheEnd) {
    const auto result = playWithOwnService({"--max-size", "240"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_THAT(
        result.output,
        AllOf(HasSubstr("\nFavourites\n  little-bear "), HasSubstr("\n  6 entries, 240 at most\n"),
              testing::ContainsRegex(
                  "\nHistory\n  film-8 +0:21:00 *\n  film-5 +1:30:00  completed\n"),
              HasSubstr("\n  … 232 more\n  240 entries, 240 at most\n"),
              testing::ContainsRegex(
                  "\nWatch list\n  film-9 *\n  film-7 *\n  film-6 *\n  3 entries")));
}

TEST_F(HouseholdEvening, LeavesTheHouseholdAsItWasAndCanBePlayedAgain) {
    startBlockingService();
    outputOf({"profiles", "create", "Anna"});
    outputOf({"watchlist", "add", "v1", "--profile", "Anna"});
    for (int time = 0; time < 2; ++time) {
        EXPECT_THAT(playedEvening(), HasSubstr("4 profiles: Parent, Anna, Anna 2, Ben\n"));
        EXPECT_THAT(names(), testing::ElementsAre("Parent", "Anna"));
    }
    EXPECT_THAT(outputOf({"watchlist", "list", "--profile", "Anna"}),
                AllOf(HasSubstr("v1"), HasSubstr("1 entry")));
}

TEST_F(HouseholdEvening, DeletesWhatAnInterruptedOneHasLeft) {
    startBlockingService();
    outputOf({"profiles", "create", "Anna", "--group", "household evening"});
    EXPECT_THAT(playedEvening(), AllOf(HasSubstr("deleted 1 of an interrupted evening"),
                                       HasSubstr("3 profiles: Parent, Anna, Ben\n")));
    EXPECT_THAT(names(), testing::ElementsAre("Parent"));
}

TEST_F(HouseholdEvening, AnotherOneOnTheSameHouseholdIsRefusedMeanwhile) {
    startBlockingService();
    outputOf({"profiles", "create", "Anna", "--group", "household evening"});
    const int file = open(configuration.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(file, LOCK_EX), 0);  // As an evening does that is played.
    const auto refused = play();
    EXPECT_EQ(refused.code, 1);
    EXPECT_THAT(refused.errors, HasSubstr("another evening is played with this configuration"));
    EXPECT_THAT(names(), testing::ElementsAre("Parent", "Anna"));
    close(file);
    playedEvening();
}

TEST_F(HouseholdEvening, TwoAtOncePlayOneAfterTheOtherOrNotAtAll) {
    startBlockingService();
    Program first(command(), environment);
    Program second(command(), environment);
    const int codes[] = {first.wait(), second.wait()};
    EXPECT_THAT(codes, testing::Contains(0)) << first.errors() << second.errors();
    EXPECT_THAT(codes, testing::Each(testing::AnyOf(0, 1))) << first.errors() << second.errors();
    EXPECT_THAT(names(), testing::ElementsAre("Parent"));
}

TEST_F(HouseholdEvening, WhereNoProfileIsBlockedItSaysSoAndFails) {
    startService();
    const auto result = play();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(
        result.errors,
        AllOf(HasSubstr("step 3, bind for a blocked profile: expected: the service answers "
                        "403 for the profile 'blocked' (start it with --block blocked); instead: "),
              HasSubstr("404")));
    EXPECT_THAT(result.output, AllOf(HasSubstr("ok 2."), Not(HasSubstr("ok 3."))));
}

TEST_F(HouseholdEvening, AStepThatGoesThroughAgainstExpectationFails) {
    const RawServer server([](TestSupport::RawConnection& connection) {
        while (const auto request = connection.readRequest()) {
            const bool isBlocked = request->find("blocked") != std::string::npos;
            connection.send(TestSupport::httpReply(200, std::string(R"({"profileId":")") +
                                                            (isBlocked ? "blocked" : "p") +
                                                            R"(","token":"t"})"));
        }
    });
    write(configuration,
          R"({"version":1,"parentProfileID":"p","brand":"b","development":true,"services":{)"
          R"("personalization-bind-anonymous":{"method":"POST","url":")" +
              server.url("/bind") + R"("}}})");
    const auto result = play();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors,
                HasSubstr("step 3, bind for a blocked profile: expected: the operation fails"));
}

TEST_F(HouseholdEvening, WhereTheHouseholdIsFullItFailsAndDeletesWhatItCreated) {
    startBlockingService({"--max-profiles", "2"});
    const auto result = play();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("step 6, two profiles are created and listed: "),
                                     HasSubstr("409")));
    EXPECT_THAT(names(), testing::ElementsAre("Parent"));
}

TEST_F(HouseholdEvening, AServiceThatIsNotThereIsANetworkError) {
    startBlockingService();
    service->signal(SIGTERM);
    ASSERT_EQ(service->wait(), 0);
    const auto result = play();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.errors, HasSubstr("step 1, bind for the parent: "));
}

TEST_F(HouseholdEvening, AServiceThatKeepsOnlyAFewEntriesWillDo) {
    startBlockingService({"--max-size", "3"});
    EXPECT_THAT(playedEvening(), HasSubstr("the list keeps the newest 3, "));
}

}  // namespace
