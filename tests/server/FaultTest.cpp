// The system fails the service: disks that are full or broken, calls that are interrupted, no
// descriptors, no threads, and a power cut.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Support.hpp"
#include "support/Waiting.hpp"

namespace KestrinProfileServer::Testing {
namespace {

namespace fs = std::filesystem;
constexpr const char* favorites = "/v1/favorites?brand=b&profile=parent&v=1";

std::string show(const std::string& id) {
    return "/v1/favorites/show?show=" + id + "&brand=b&profile=parent&v=1";
}

class FaultTest : public testing::Test {
  protected:
    FaultTest() {
        fs::create_directory(data);
        fs::create_directories(durable);
    }

    TestSupport::Program start(const std::string& threadsBefore = "",
                               const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words{KESTRIN_PROFILE_SERVER_PROGRAM,
                                       "--database",
                                       (data / "db").string(),
                                       "--port",
                                       "0",
                                       "--write-config",
                                       configuration.string(),
                                       "--threads",
                                       "2"};
        words.insert(words.end(), more.begin(), more.end());
        return {std::move(words),
                {{"LD_PRELOAD", KESTRIN_SERVER_FAULTS},
                 {"KESTRIN_FAULTS", faults.path().string()},
                 {"KESTRIN_DATA", data.string()},
                 {"KESTRIN_THREADS_BEFORE", threadsBefore}}};
    }

    void turnOn(const std::string& fault, int error = 1) const {
        // In one step, so that nobody reads an empty file.
        TestSupport::write(faults / "next", std::to_string(error));
        fs::rename(faults / "next", faults / fault);
    }
    void turnOff(const std::string& fault) const { fs::remove(faults / fault); }

    /// What the computer has after its power was cut: of each file what was synced last.
    void cutPower() const {
        for (const auto& file : fs::directory_iterator(durable))
            if (!fs::exists(data / file.path().filename())) fs::remove(file.path());
        fs::remove_all(data);
        fs::copy(durable, data);
    }

    TestSupport::TemporaryDirectory faults;
    TestSupport::TemporaryDirectory folder;
    fs::path data = folder / "data";
    fs::path durable = faults / "durable";
    fs::path configuration = folder / "configuration.json";
};

TEST_F(FaultTest, aWriteThatTheDiskRefusesIsRefusedAndTheNextOnesGoOn) {
    auto process = start();
    HouseholdClient client = householdClient(process, configuration);
    const Caller parent = client.bind("parent");
    std::string acknowledged;
    int id = 0;
    for (const std::string fault : {"write", "sync"}) {
        for (const int error : {ENOSPC, EIO, EDQUOT}) {
            const std::string good = std::to_string(++id);
            EXPECT_EQ(outcomeOf(client.call(parent, "PUT", show(good))), "204");
            acknowledged = good + (acknowledged.empty() ? "" : " ") + acknowledged;
            turnOn(fault, error);
            for (int time = 0; time < 3; ++time) {
                EXPECT_EQ(outcomeOf(client.call(parent, "PUT", show("refused"))), "503 unavailable")
                    << fault << error;
            }
            const auto refused = client.call(parent, "DELETE", favorites);
            EXPECT_EQ(outcomeOf(refused), "503 unavailable");
            EXPECT_EQ(refused.headers.at("retry-after"), "1");
            EXPECT_EQ(client.idsOf(parent, favorites), acknowledged) << fault << error;
            turnOff(fault);
        }
    }
    EXPECT_EQ(outcomeOf(client.call(parent, "PUT", show("last"))), "204");
    process.signal(SIGKILL);
    process.wait();
    auto again = start();
    HouseholdClient other = householdClient(again, configuration);
    EXPECT_EQ(other.idsOf(other.bind("parent"), favorites), "last " + acknowledged);
}

TEST_F(FaultTest, aChangeOfTheStateThatTheDiskRefusesChangesNothingBesideItEither) {
    auto process = start("", {"--admin"});
    HouseholdClient client = householdClient(process, configuration);
    AdminClient admin(waitUntilReady(process));
    admin.call("PUT", "clock", R"({"now":"2030-01-01T00:00:00Z","frozen":true})");
    const Caller parent = client.bind("parent");
    const auto maxSize = [&] {
        return client.call(parent, "GET", "/v1/history?brand=b&profile=parent&v=1")
            .json()
            .at("maxSize")
            .as_int64();
    };
    const std::string seed = R"({"maxSize":7,"households":[{"id":"another"}]})";
    for (const std::string fault : {"write", "sync"}) {
        turnOn(fault, EIO);
        EXPECT_EQ(outcomeOf(admin.call("PUT", "state", seed)), "503 unavailable");
        EXPECT_EQ(outcomeOf(admin.call("POST", "state", seed)), "503 unavailable");
        EXPECT_EQ(outcomeOf(admin.call("POST", "scenarios/long-history")), "503 unavailable");
        EXPECT_EQ(outcomeOf(admin.call("POST", "reset")), "503 unavailable");
        turnOff(fault);
        EXPECT_EQ(maxSize(), 500) << fault;
        EXPECT_EQ(admin.get("clock").at("now"), "2030-01-01T00:00:00.000Z") << fault;
        EXPECT_GT(admin.get("journal").at("total").as_int64(), 0) << fault;
    }
    EXPECT_EQ(outcomeOf(admin.call("POST", "state", seed)), "204");
    EXPECT_EQ(maxSize(), 7);
    EXPECT_EQ(outcomeOf(admin.call("POST", "reset")), "204");
    EXPECT_EQ(admin.get("clock").at("frozen"), false);
    EXPECT_EQ(admin.get("journal").at("total"), 0);
}

TEST_F(FaultTest, writesThatAreShortOrInterruptedAreFinished) {
    for (const std::string fault : {"short", "interrupted"}) {
        turnOn(fault);
        auto process = start();
        HouseholdClient client = householdClient(process, configuration);
        const Caller parent = client.bind("parent");
        EXPECT_EQ(outcomeOf(client.call(parent, "PUT", show(fault))), "204");
        process.signal(SIGTERM);
        EXPECT_EQ(process.wait(), 0);
        turnOff(fault);
    }
    auto process = start();
    HouseholdClient client = householdClient(process, configuration);
    EXPECT_EQ(client.idsOf(client.bind("parent"), favorites), "interrupted short");
}

TEST_F(FaultTest, withoutDescriptorsItTriesAgainNowAndThen) {
    auto process = start();
    const std::string url = waitUntilReady(process);
    turnOn("accept", EMFILE);
    const auto begin = std::chrono::steady_clock::now();
    RawClient client(url);
    client.send("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_TRUE(TestSupport::eventually(
        [&] { return TestSupport::contentOf(faults / "refused").size() >= 4; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(250))
        << "it tried without a pause";
    turnOff("accept");
    EXPECT_EQ(outcomeOfRaw(client.reply()), "200");
}

TEST_F(FaultTest, aThreadThatCannotStartIsAClearError) {
    turnOn("thread", EAGAIN);
    for (const std::string before : {"0", "1", "2", "3"}) {
        auto process = start(before);
        EXPECT_EQ(process.wait(), 1) << before;
        EXPECT_EQ(process.output(), "");
        EXPECT_NE(process.errors().find("cannot start a thread: "), std::string::npos)
            << before << process.errors();
    }
    auto process = start("4");
    EXPECT_NE(waitUntilReady(process), "");
}

class PowerCutTest : public FaultTest {
  protected:
    /// Writes one show after another until the power is cut; what is missing then.
    std::vector<std::string> lostOf(int shows) {
        std::vector<std::string> answered;
        {
            auto process = start();
            HouseholdClient client = householdClient(process, configuration);
            const Caller parent = client.bind("parent");
            for (int index = 0; index < shows; ++index) {
                if (index == shows / 2 && forgets) turnOn("forget");
                const std::string id = "s" + std::to_string(index);
                EXPECT_EQ(outcomeOf(client.call(parent, "PUT", show(id))), "204");
                answered.push_back(id);
            }
            process.signal(SIGKILL);
            process.wait();
        }
        cutPower();
        auto process = start();
        HouseholdClient client = householdClient(process, configuration);
        const std::string stored = " " + client.idsOf(client.bind("parent"), favorites) + " ";
        std::erase_if(answered, [&](const std::string& id) {
            return stored.find(" " + id + " ") != std::string::npos;
        });
        return answered;
    }

    bool forgets = false;
};

TEST_F(PowerCutTest, losesNoWriteThatWasAnswered) {
    EXPECT_EQ(lostOf(100), std::vector<std::string>{});
}

// Shows that the test above sees a loss.
TEST_F(PowerCutTest, losesWritesIfTheDiskForgetsWhatWasSynced) {
    forgets = true;
    EXPECT_EQ(lostOf(100).size(), 50U);
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
