// Many clients at once, and a program that is killed.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <signal.h>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Support.hpp"
#include "support/Rounds.hpp"
#include "support/Waiting.hpp"

namespace KestrinProfileServer::Testing {
namespace {

constexpr const char* favorites = "/v1/favorites?brand=b&profile=parent&v=1";
constexpr const char* addShows = "/v1/favorites/shows?brand=b&profile=parent&v=1";

std::string watchTarget(const std::string& id) {
    return "/v1/history/video?video=" + id + "&brand=b&profile=parent&v=1";
}

/// Runs `work(index)` on threads of their own until all return.
template <class Work>
void inParallel(int count, const Work& work) {
    std::vector<std::thread> threads;
    for (int index = 0; index < count; ++index)
        threads.emplace_back([&work, index] { work(index); });
    for (auto& thread : threads)
        thread.join();
}

TEST(ConcurrencyTest, nobodyEverSeesHalfOfManyShows) {
    constexpr std::size_t showCount = 20;
    constexpr int fewestRounds = 60;
    constexpr int mostRounds = 5000;
    TestService service;
    const Caller parent = service.client().bind("parent");
    std::atomic<bool> isDone = false;
    std::atomic<int> seenEmpty = 0;
    std::atomic<int> seenFull = 0;

    const auto write = [&](HouseholdClient& client) {
        const auto isConclusive = [&] { return seenEmpty > 0 && seenFull > 0; };
        for (int round = 0; round < mostRounds; ++round) {
            if (round >= fewestRounds && isConclusive()) break;
            std::string body = R"({"elements":[)";
            for (std::size_t show = 0; show < showCount; ++show) {
                body += (show == 0 ? "" : ",") + (R"({"id":")" + std::to_string(round) + "-") +
                        std::to_string(show) + "\"}";
            }
            EXPECT_EQ(outcomeOf(client.call(parent, "POST", addShows, body + "]}")), "204");
            EXPECT_EQ(outcomeOf(client.call(parent, "DELETE", favorites)), "204");
        }
        isDone = true;
    };
    const auto read = [&](HouseholdClient& client) {
        while (!isDone) {
            const auto elements =
                client.call(parent, "GET", favorites).json().at("elements").as_array();
            std::set<std::string> generations;
            for (const auto& element : elements) {
                const std::string id(element.at("id").as_string());
                generations.insert(id.substr(0, id.find('-')));
            }
            EXPECT_TRUE(elements.empty() || elements.size() == showCount) << elements.size();
            EXPECT_LE(generations.size(), 1U);
            ++(elements.empty() ? seenEmpty : seenFull);
        }
    };
    inParallel(4, [&](int index) {
        HouseholdClient client = service.client();
        index == 0 ? write(client) : read(client);
    });
    EXPECT_GT(seenEmpty, 0);
    EXPECT_GT(seenFull, 0);
}

TEST(ConcurrencyTest, noWriteOfParallelClientsIsLost) {
    constexpr int clients = 8;
    constexpr int videos = 25;
    TestService service;
    const Caller parent = service.client().bind("parent");
    inParallel(clients, [&](int index) {
        HouseholdClient client = service.client();
        for (int video = 0; video < videos; ++video) {
            const std::string id = std::to_string(index) + "-" + std::to_string(video);
            EXPECT_EQ(outcomeOf(client.call(parent, "PUT", watchTarget(id))), "204");
        }
    });
    const auto list =
        service.client().call(parent, "GET", "/v1/history?brand=b&profile=parent&v=1");
    EXPECT_EQ(list.json().at("elements").as_array().size(), std::size_t{clients * videos});
}

TEST(ConcurrencyTest, aClientReadsWhatItHasJustWritten) {
    TestService service;
    const Caller parent = service.client().bind("parent");
    inParallel(4, [&](int index) {
        HouseholdClient writer = service.client();
        HouseholdClient reader = service.client();
        for (int round = 0; round < 20; ++round) {
            const std::string target = watchTarget(std::to_string(index));
            const std::string progress = std::to_string(round);
            writer.call(parent, "PUT", target, R"({"progress":")" + progress + "\"}");
            EXPECT_NE(
                reader.call(parent, "GET", target).body.find("\"progress\":" + progress + ","),
                std::string::npos);
        }
    });
}

TEST(ConcurrencyTest, ofManyWhoWantTheLastPlaceOrTheSameNameOneGetsIt) {
    TestService service([](ServiceSettings& settings) { settings.limits.maxProfiles = 3; });
    const Caller parent = service.client().bind("parent");
    std::atomic<int> created = 0;
    inParallel(6, [&](int index) {
        HouseholdClient client = service.client();
        const std::string name = index < 3 ? "Same" : "Name " + std::to_string(index);
        const auto reply = client.call(parent, "POST", "/v1/profiles?profile=parent&v=1",
                                       R"({"username":")" + name + R"(","default":true})");
        if (reply.status == 201) ++created;
    });
    EXPECT_EQ(created, 2);
    const auto profiles = service.client().call(parent, "GET", "/v1/profiles?profile=parent&v=1");
    int defaults = 0;
    std::set<std::string> names;
    const auto document = profiles.json();
    for (const auto& profile : document.at("data").as_array()) {
        defaults += profile.at("default").as_bool() ? 1 : 0;
        names.emplace(profile.at("username").as_string());
    }
    EXPECT_EQ(defaults, 1);
    EXPECT_EQ(names.size(), 3U);
}

TEST(ConcurrencyTest, aProfileThatIsDeletedMeanwhileRefusesItsWritesCleanly) {
    TestService service;
    HouseholdClient client = service.client();
    const Caller parent = client.bind("parent");
    const Caller kid = client.create(parent, "Anna");
    const std::string target =
        "/v1/history/video?video=v&brand=b&profile=" + kid.profileID + "&v=1";
    std::atomic<int> refused = 0;
    inParallel(4, [&](int index) {
        HouseholdClient own = service.client();
        if (index == 0) {
            own.call(parent, "DELETE", "/v1/profile?target=" + kid.profileID + "&v=1");
            return;
        }
        for (std::string outcome = "204"; outcome == "204";) {
            outcome = outcomeOf(own.call(kid, "PUT", target));
            if (outcome == "403 token-refused") ++refused;
        }
    });
    EXPECT_EQ(refused, 3);
}

TEST(ConcurrencyTest, stoppingAnswersEveryRequestThatIsRunning) {
    TestService service;
    const Caller parent = service.client().bind("parent");
    const std::string secret = service.secret();
    const std::string url = service.baseURL();
    std::mutex mutex;
    std::set<std::string> answered;
    TestSupport::Tally answers;
    inParallel(5, [&](int index) {
        if (index == 0) {
            EXPECT_TRUE(answers.reaches(100));
            service.restart();
            return;
        }
        HouseholdClient client(url, secret);
        try {
            for (int video = 0;; ++video) {
                const std::string id = std::to_string(index) + "-" + std::to_string(video);
                if (outcomeOf(client.call(parent, "PUT", watchTarget(id))) != "204") break;
                answers.add();
                const std::lock_guard lock(mutex);
                answered.insert(id);
            }
        } catch (const std::runtime_error&) {
            // The service has stopped and the next connection is refused.
        }
    });
    EXPECT_FALSE(answered.empty());
    Connection connection(service.database(), Connection::Mode::readOnly);
    const auto profile = findProfile(connection, std::string("household"), "parent");
    std::set<std::string> stored;
    for (const Entry& entry : entriesOf(connection, {profile->row, ListKind::history, "b"}, 500))
        stored.insert(entry.id);
    std::vector<std::string> newest;
    for (int index = 1; index < 5; ++index) {
        int last = -1;
        while (answered.contains(std::to_string(index) + "-" + std::to_string(last + 1)))
            ++last;
        if (last >= 0) newest.push_back(std::to_string(index) + "-" + std::to_string(last));
    }
    for (const auto& id : newest)
        EXPECT_TRUE(stored.contains(id)) << id;
}

/// Clients that write as fast as they can until the program is killed.
class KillTest : public testing::Test {
  protected:
    /// Starts the program, and kills it while it works.
    /// @param brand  whose lists are written
    /// @return which writes were answered
    std::set<std::string> answeredUntilKilled(const std::string& brand, std::size_t writes) {
        auto process = startServer(arguments);
        const std::string url = waitUntilReady(process);
        TestSupport::Tally count;
        std::mutex mutex;
        std::set<std::string> answered;
        inParallel(7, [&](int index) {
            if (index == 0) {
                EXPECT_TRUE(count.reaches(writes));
                process.signal(SIGKILL);
                return;
            }
            writeUntilKilled(url, brand, std::to_string(index) + "-", [&](const std::string& id) {
                count.add();
                const std::lock_guard lock(mutex);
                answered.insert(id);
            });
        });
        EXPECT_EQ(process.wait(), -SIGKILL);
        return answered;
    }

    /// The identifiers in a list of the program's, started again.
    std::set<std::string> stored(HouseholdClient& client, const std::string& brand) const {
        std::set<std::string> ids;
        const auto document = client
                                  .call(client.bind("parent"), "GET",
                                        "/v1/history?brand=" + brand + "&profile=parent&v=1")
                                  .json();
        for (const auto& element : document.at("elements").as_array())
            ids.emplace(element.at("id").as_string());
        return ids;
    }

    TestSupport::TemporaryDirectory folder;
    std::filesystem::path configuration = folder / "configuration.json";
    std::vector<std::string> arguments{"--database",     (folder / "profiles.sqlite").string(),
                                       "--port",         "0",
                                       "--write-config", configuration.string(),
                                       "--max-size",     "100000",
                                       "--quiet"};

  private:
    template <class Note>
    void writeUntilKilled(const std::string& url, const std::string& brand,
                          const std::string& prefix, const Note& note) const {
        try {
            HouseholdClient client(url, secretIn(configuration));
            const Caller parent = client.bind("parent");
            for (int video = 0;; ++video) {
                const std::string id = prefix + std::to_string(video);
                if (outcomeOf(client.call(parent, "PUT",
                                          "/v1/history/video?video=" + id + "&brand=" + brand +
                                              "&profile=parent&v=1")) != "204")
                    return;
                note(id);
            }
        } catch (const std::runtime_error&) {
            // The program is gone.
        }
    }
};

TEST_F(KillTest, everyAnsweredWriteIsThereAfterTheProgramWasKilled) {
    std::vector<std::set<std::string>> answered;
    for (std::size_t round = 0; round < TestSupport::roundsOf(3); ++round) {
        const std::size_t writes = 120 - round % 100;
        answered.push_back(answeredUntilKilled("b" + std::to_string(round), writes));
        ASSERT_GE(answered.back().size(), writes);
    }
    auto process = startServer(arguments);
    HouseholdClient client = householdClient(process, configuration);
    std::size_t count = 0;
    std::vector<std::string> lost;
    for (std::size_t round = 0; round < answered.size(); ++round) {
        count += answered[round].size();
        std::ranges::set_difference(answered[round], stored(client, "b" + std::to_string(round)),
                                    std::back_inserter(lost));
    }
    EXPECT_EQ(lost, std::vector<std::string>{});
    RecordProperty("writes", std::to_string(count));
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
