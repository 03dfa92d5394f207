// A process that is forked from one that has saved binds has the store, but not the thread that
// writes. Nothing may wait for that.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include <gmock/gmock.h>

#include <KestrinConfigManager/FileBindStore.hpp>

#include "Support.hpp"
#include "support/Fork.hpp"
#include "support/Program.hpp"
#include "support/Rounds.hpp"

namespace {

using KestrinConfigManager::FileBindStore;
using TestSupport::ChildEnds;
using TestSupport::contentOf;
using TestSupport::held;

class BindStoreFork : public testing::Test {
  protected:
    [[nodiscard]] static int resultOfChild(const std::function<bool()>& isWell) {
        return TestSupport::resultOfChild(
            isWell, UNDER_SANITIZER ? ChildEnds::atOnce : ChildEnds::asAProgram);
    }

    /// Whether waiting says that the process cannot write, and where it would have.
    [[nodiscard]] bool refuses(FileBindStore& forked) const {
        const auto failure = forked.flush();
        return failure && failure->find("forked") != std::string::npos &&
               failure->find(file.string()) != std::string::npos;
    }

    /// Makes the store save a bind, and waits for it.
    void save(std::uint64_t revision) {
        store->save(held(revision, "p", "t"));
        ASSERT_EQ(store->flush(), std::nullopt);
    }

    TestSupport::TemporaryDirectory directory;
    std::filesystem::path file = directory / "binds.json";
    std::optional<FileBindStore> store{file};
};

TEST_F(BindStoreFork, WaitingInTheChildEndsWithAnError) {
    save(1);
    EXPECT_EQ(resultOfChild([&] { return refuses(*store); }), 0);
    save(2);
    EXPECT_EQ(FileBindStore(file).load().held.revision, 2U);
}

TEST_F(BindStoreFork, ASaveInTheChildChangesNothing) {
    save(1);
    const auto before = contentOf(file);
    EXPECT_EQ(resultOfChild([&] {
                  store->save(held(2, "p", "of the child"));
                  return refuses(*store);
              }),
              0);
    EXPECT_EQ(contentOf(file), before);
}

TEST_F(BindStoreFork, TheChildLoadsWhatTheFileHolds) {
    save(7);
    EXPECT_EQ(resultOfChild([&] {
                  const auto loaded = store->load();
                  return loaded.held.revision == 7 && !loaded.warning;
              }),
              0);
}

TEST_F(BindStoreFork, TheChildMayLetGoOfTheStore) {
    save(1);
    EXPECT_EQ(resultOfChild([&] {
                  store.reset();
                  return true;
              }),
              0);
    save(2);
}

TEST_F(BindStoreFork, AStoreThatHasSavedNothingIsTheChildsAsWell) {
    if (UNDER_THREAD_SANITIZER) GTEST_SKIP() << "ThreadSanitizer allows no thread after a fork";
    EXPECT_EQ(resultOfChild([&] {
                  store->save(held(1, "p", "of the child"));
                  return !store->flush();
              }),
              0);
    EXPECT_EQ(FileBindStore(file).load().held.revision, 1U);
    save(2);
    EXPECT_EQ(FileBindStore(file).load().held.revision, 2U);
}

// A lock may be in the hand of a thread at the moment of the fork, and that thread is not there.
TEST_F(BindStoreFork, NothingInTheChildWaitsForALockThatAThreadHad) {
    save(1);
    std::atomic<bool> stops = false;
    std::thread saving([&] {
        for (std::uint64_t revision = 2; !stops; ++revision)
            store->save(held(revision, "p", "t"));
    });
    for (std::size_t round = 0; round < TestSupport::roundsOf(20); ++round)
        EXPECT_EQ(resultOfChild([&] {
                      store->save(held(1, "p", "of the child"));
                      const bool isWell = refuses(*store) && !store->load().warning;
                      store.reset();
                      return isWell;
                  }),
                  0);
    stops = true;
    saving.join();
    EXPECT_EQ(store->flush(), std::nullopt);
}

}  // namespace
