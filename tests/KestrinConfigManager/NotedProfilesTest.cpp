// What `ConfigurationManager` keeps of profiles that are noted and never get their token. A program
// of its own, because it replaces the allocation functions.

#include <string>
#include <thread>

#include <gmock/gmock.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>

#include "support/Allocations.hpp"

namespace {

using TestSupport::blocksInUse;

TEST(NotedProfiles, NothingIsLeftOfAThreadThatHasEnded) {
    KestrinConfigManager::ConfigurationManager manager;
    const std::string profileID(100, 'p');
    const auto note = [&] { std::thread([&] { manager.setBindProfileID(profileID); }).join(); };
    note();
    const long before = blocksInUse();
    for (int round = 0; round < 1000; ++round)
        note();
    EXPECT_EQ(blocksInUse(), before);
}

TEST(NotedProfiles, AThreadThatNotesManyProfilesKeepsTheLast) {
    KestrinConfigManager::ConfigurationManager manager;
    const auto note = [&](int number) {
        manager.setBindProfileID(std::string(100, 'p') + std::to_string(number));
    };
    note(0);
    const long before = blocksInUse();
    for (int round = 1; round < 100'000; ++round)
        note(round);
    EXPECT_EQ(blocksInUse(), before);
}

TEST(NotedProfiles, NothingIsLeftOfAnObjectThatHasEnded) {
    const auto note = [] {
        KestrinConfigManager::ConfigurationManager manager;
        manager.setBindProfileID(std::string(100, 'p'));
    };
    note();
    const long before = blocksInUse();
    for (int round = 0; round < 1000; ++round)
        note();
    EXPECT_EQ(blocksInUse(), before);
}

}  // namespace
