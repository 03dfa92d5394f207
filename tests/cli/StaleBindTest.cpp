#include <algorithm>
#include <atomic>
#include <csignal>
#include <regex>
#include <string>
#include <vector>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using TestSupport::CommandLine;
using TestSupport::contentOf;
using TestSupport::httpReply;
using TestSupport::RawConnection;
using TestSupport::RawServer;
using TestSupport::write;

/// Binds that are held and have not expired, but that the service does not take any more.
class StaleBind : public CommandLine {
  protected:
    void SetUp() override { startService(); }

    /// Makes the service refuse what is held: the signatures are another one's.
    void spoilHeldBinds() {
        const std::regex signature(R"(("token":"[^".]*\.[^".]*\.)[^"]*")");
        const std::string held = contentOf(bindFile());
        const std::string spoilt = std::regex_replace(held, signature, "$1c3RhbGU\"");
        ASSERT_NE(spoilt, held);
        write(bindFile(), spoilt);
    }

    /// Starts the service anew with the same database, blocking a profile.
    void blockFromNowOn(const std::string& profileID) {
        service->signal(SIGTERM);
        ASSERT_EQ(service->wait(), 0);
        startService({"--block", profileID});
    }

    std::string create(const std::string& name) {
        const std::string document = outputOf({"profiles", "create", name, "--json"});
        std::smatch found;
        EXPECT_TRUE(std::regex_search(document, found, std::regex(R"re("profileId":"([^"]*)")re")));
        return found[1];
    }

    struct Played {
        int code;
        std::vector<std::string> requests;  ///< e.g. "GET /v1/history 200"
        std::string output;
        std::string errors;
    };

    Played play(std::vector<std::string> arguments) {
        arguments.emplace_back("-v");
        const Result result = runConfigured(std::move(arguments));
        Played played{result.code, {}, result.output, result.errors};
        const std::regex line(R"(([A-Z]+) http://[^/]*(/\S*) -> (\S+) )");
        for (std::sregex_iterator each(result.errors.begin(), result.errors.end(), line), end;
             each != end; ++each)
            played.requests.push_back((*each)[1].str() + " " + (*each)[2].str() + " " +
                                      (*each)[3].str());
        return played;
    }
};

TEST_F(StaleBind, IsReplacedAndTheRequestIsSentOnceMore) {
    outputOf({"watchlist", "add", "v1"});
    spoilHeldBinds();
    const auto played = play({"watchlist", "list"});
    EXPECT_EQ(played.code, 0) << played.errors;
    EXPECT_THAT(played.output, HasSubstr("v1"));
    EXPECT_THAT(played.requests, ElementsAre("GET /v1/watchlist 403", "POST /v1/binds 200",
                                             "GET /v1/watchlist 200"));
    EXPECT_THAT(play({"watchlist", "list"}).requests, ElementsAre("GET /v1/watchlist 200"));
}

TEST_F(StaleBind, IsReplacedWhereAProfileIsLookedUp) {
    create("Anna");
    spoilHeldBinds();
    const auto played = play({"history", "clear", "--profile", "Anna", "--yes"});
    EXPECT_EQ(played.code, 0) << played.errors;
    EXPECT_THAT(played.requests,
                ElementsAre("GET /v1/profiles 403", "POST /v1/binds 200", "GET /v1/profiles 200",
                            "POST /v1/binds 200", "DELETE /v1/history 204"));
}

TEST_F(StaleBind, IsReplacedForTheDeletionOfSearchesToo) {
    outputOf({"search", "add", "text"});
    spoilHeldBinds();
    EXPECT_THAT(
        play({"search", "delete", "--yes"}).requests,
        ElementsAre("DELETE /v1/searches 403", "POST /v1/binds 200", "DELETE /v1/searches 204"));
}

TEST_F(StaleBind, IsReplacedOnceForManyItems) {
    outputOf({"bind"});
    spoilHeldBinds();
    std::vector<std::string> arguments{"watchlist", "add", "--jobs", "4"};
    for (int video = 0; video < 20; ++video)
        arguments.push_back("v" + std::to_string(video));
    const auto played = play(arguments);
    EXPECT_EQ(played.code, 0) << played.errors;
    EXPECT_EQ(played.output, "added 20 of 20 to the watch list\n");
    EXPECT_EQ(std::ranges::count(played.requests, "POST /v1/binds 200"), 1);
    EXPECT_EQ(std::ranges::count(played.requests, "PUT /v1/watchlist/video 204"), 20);
    EXPECT_LE(std::ranges::count(played.requests, "PUT /v1/watchlist/video 403"), 4);
}

/// A service that gives out the tokens "old" and then "new", and refuses the old one: a video
/// "late" only when the new one was seen.
class LateRefusal {
  public:
    void operator()(RawConnection& connection) {
        while (const auto request = connection.readRequest())
            connection.send(replyTo(*request, connection));
    }

    [[nodiscard]] int binds() const { return binds_; }

  private:
    std::string replyTo(const std::string& request, RawConnection& connection) {
        if (request.starts_with("POST")) {
            const char* const token = binds_++ == 0 ? "old" : "new";
            return httpReply(200, R"({"profileId":"p","token":")" + std::string(token) + R"("})");
        }
        if (request.find("JWT new") != std::string::npos) return httpReply(200, "{}");
        const bool isLate = request.find("?late") != std::string::npos;
        EXPECT_TRUE(!isLate || connection.awaitRequestWith("JWT new"));
        return httpReply(403, "{}");
    }

    std::atomic<int> binds_ = 0;
};

TEST_F(CommandLine, ALateRefusalOfAStaleBindLeavesTheNewOneKept) {
    LateRefusal refusal;
    const RawServer server([&](RawConnection& connection) { refusal(connection); });
    configureWatchList(server.url(""));
    outputOf({"bind"});
    EXPECT_EQ(outputOf({"watchlist", "add", "late", "v1", "--jobs", "2"}),
              "added 2 of 2 to the watch list\n");
    EXPECT_EQ(refusal.binds(), 2);
    outputOf({"watchlist", "add", "v2"});
    EXPECT_EQ(refusal.binds(), 2) << "the new bind was not kept";
}

TEST_F(StaleBind, WhatIsRefusedUnderTheNewOneStaysRefused) {
    const std::string anna = create("Anna");
    const std::string bob = create("Bob");
    outputOf({"bind", anna});
    const auto held = play({"profiles", "delete", bob, "--profile", anna, "--yes"});
    EXPECT_EQ(held.code, 4);
    EXPECT_THAT(held.requests, ElementsAre("GET /v1/profiles 200", "DELETE /v1/profile 403",
                                           "POST /v1/binds 200", "DELETE /v1/profile 403"));
    const auto fresh = play({"history", "list", "--profile", anna});
    EXPECT_EQ(fresh.code, 0) << fresh.errors;
}

TEST_F(StaleBind, OneThatWasObtainedForTheRequestIsNotReplaced) {
    create("Anna");
    const auto played = play({"profiles", "create", "Bob", "--profile", "Anna"});
    EXPECT_EQ(played.code, 4);
    EXPECT_THAT(played.requests,
                ElementsAre("GET /v1/profiles 200", "POST /v1/binds 200", "POST /v1/profiles 403"));
}

TEST_F(StaleBind, ARefusalLeavesTheBindsOfOthers) {
    const std::string anna = create("Anna");
    outputOf({"bind", anna});
    blockFromNowOn(anna);
    EXPECT_EQ(play({"history", "list", "--profile", anna}).code, 4);
    EXPECT_THAT(play({"history", "list"}).requests, ElementsAre("GET /v1/history 200"));
}

TEST_F(StaleBind, TheLogSaysThatItIsReplaced) {
    outputOf({"bind"});
    spoilHeldBinds();
    const auto played = play({"watchlist", "list"});
    EXPECT_THAT(played.errors,
                HasSubstr("personalization-bind-anonymous: a new bind is requested, after 403\n"));
    EXPECT_THAT(played.errors, HasSubstr("personalization-watchlist-get: sent once more under a "
                                         "newer bind, after 403\n"));
}

TEST_F(StaleBind, WhereNoNewOneCanBeHadTheRefusalStands) {
    const std::string anna = create("Anna");
    outputOf({"bind", anna});
    blockFromNowOn(anna);
    const auto one = play({"history", "list", "--profile", anna});
    EXPECT_EQ(one.code, 4);
    EXPECT_THAT(one.requests, ElementsAre("GET /v1/history 403", "POST /v1/binds 403"));
}

TEST_F(StaleBind, WhereNoNewOneCanBeHadItIsAskedForOnceForManyItems) {
    const std::string anna = create("Anna");
    outputOf({"bind", anna});
    blockFromNowOn(anna);
    const auto many = play({"favorites", "add", "s1", "s2", "s3", "s4", "--profile", anna});
    EXPECT_EQ(many.code, 4);
    EXPECT_EQ(many.output, "added 0 of 4 to the favorites; 4 failed\n");
    EXPECT_EQ(std::ranges::count(many.requests, "POST /v1/binds 403"), 1);
    EXPECT_EQ(std::ranges::count(many.requests, "PUT /v1/favorites/show 403"), 4);
}

}  // namespace
