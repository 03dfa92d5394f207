#include <atomic>
#include <cstddef>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/FileBindStore.hpp>

#include "Support.hpp"
#include "support/Program.hpp"

namespace {

using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::FileBindStore;
using TestSupport::numbered;

constexpr int rounds = 400;

/// Runs each action again and again on a thread of its own, all at the same time.
void runTogether(const std::vector<std::function<void(int round)>>& actions) {
    std::latch start(static_cast<std::ptrdiff_t>(actions.size()));
    std::vector<std::thread> threads;
    threads.reserve(actions.size());
    for (const auto& action : actions)
        threads.emplace_back([&start, &action] {
            start.arrive_and_wait();
            for (int round = 0; round < rounds; ++round)
                action(round);
        });
    for (auto& thread : threads)
        thread.join();
}

TEST(ConfigurationManagerConcurrency, EveryMemberMayBeCalledAtTheSameTime) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::write(directory / "c.json", R"({"version":1,"parentProfileID":"p0"})");
    ConfigurationManager manager;
    std::atomic<int> handled{0};
    std::atomic<int> mixed{0};

    const auto store = [&](int number) {
        return [&manager, &mixed, profile = numbered("p", number)](int round) {
            manager.setBindProfileID(profile);
            manager.setBindToken(profile + "-token-" + std::to_string(round));
            for (const bool parent : {false, true})
                if (const auto bind = manager.bind(parent))
                    if (!bind->token.starts_with(bind->profileID + "-token-")) ++mixed;
        };
    };
    runTogether({
        store(0),
        store(1),
        store(2),
        [&](int round) {
            manager.configure(
                {.parentProfileID = numbered("p", round % 3), .brand = {}, .services = {}});
            if (round % 10 == 0) manager.removeConfiguration();
            if (round % 20 == 0) {
                EXPECT_TRUE(manager.load(directory / "c.json").empty());
            }
        },
        [&](int round) {
            manager.selectProfile(numbered("p", round % 3));
            static_cast<void>(manager.selectedProfileID());
            if (const auto snapshot = manager.currentConfiguration()) {
                EXPECT_TRUE(snapshot->parentProfileID.starts_with("p"));
            }
        },
        [&](int round) {
            if (round % 2 == 0)
                manager.setForbiddenReplyHandler([&] { ++handled; });
            else
                manager.setForbiddenReplyReaction([&] { ++handled; });
            manager.reactToForbiddenReply();
            manager.setForbiddenReplyReaction({});
        },
        [&](int round) {
            if (round % 40 == 0)
                manager.useBindStore(std::make_shared<FileBindStore>(directory / "binds.json"));
            if (round % 40 == 20) manager.useBindStore(nullptr);
            if (round % 7 == 0) manager.dropBinds();
        },
    });
    EXPECT_EQ(mixed, 0);
    EXPECT_EQ(handled, rounds);
}

TEST(ConfigurationManagerConcurrency, AFileEndsWithTheLastStateOfManyThreads) {
    const TestSupport::TemporaryDirectory directory;
    const auto store = std::make_shared<FileBindStore>(directory / "binds.json");
    ConfigurationManager manager;
    manager.useBindStore(store);
    std::vector<std::function<void(int)>> actions;
    for (int number = 0; number < 4; ++number)
        actions.emplace_back([&manager, profile = numbered("p", number)](int round) {
            manager.setBindProfileID(profile);
            manager.setBindToken(std::to_string(round));
        });
    runTogether(actions);
    EXPECT_EQ(store->flush(), std::nullopt);

    const auto loaded = store->load();
    EXPECT_EQ(loaded.held.revision, 4U * rounds);
    ASSERT_EQ(loaded.held.binds.size(), 4U);
    for (const auto& bind : loaded.held.binds)
        EXPECT_EQ(bind.token, std::to_string(rounds - 1)) << bind.profileID;
}

TEST(SharedInstanceConcurrency, ThreadsThatAskAtTheSameTimeGetTheSameAndMayUseIt) {
    constexpr std::size_t count = 4;
    std::vector<ConfigurationManager*> firstSeen(count);
    std::atomic<int> mixed{0};
    std::vector<std::function<void(int)>> actions;
    for (std::size_t thread = 0; thread < count; ++thread)
        actions.emplace_back([&, thread, parent = numbered("p", static_cast<int>(thread))](int) {
            auto& shared = ConfigurationManager::sharedInstance();
            if (firstSeen[thread] == nullptr) firstSeen[thread] = &shared;
            shared.configure({.parentProfileID = parent, .brand = {}, .services = {}});
            shared.setBindProfileID(parent);
            shared.setBindToken("token of " + parent);
            if (!ConfigurationManager::parentProfileID().starts_with("p")) ++mixed;
            const auto bind = ConfigurationManager::profileBind(true);
            if (bind && bind->token != "token of " + bind->profileID) ++mixed;
        });
    runTogether(actions);
    EXPECT_THAT(firstSeen, testing::Each(&ConfigurationManager::sharedInstance()));
    EXPECT_EQ(mixed, 0);
}

}  // namespace
