// Lets the allocations of the bind store fail, on every thread, one after the other and all from
// one on. A program of its own, because it replaces the allocation functions.

#include <optional>
#include <string>

#include <gmock/gmock.h>

#include <KestrinConfigManager/FileBindStore.hpp>

#include "support/Allocations.hpp"
#include "support/Program.hpp"

namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::FileBindStore;
using KestrinConfigManager::HeldBinds;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;
using TestSupport::Failing;
using TestSupport::FailingAllocations;

HeldBinds heldBinds(std::uint64_t revision) {
    return {{AnonymousBind("parent", "the.first.token"),
             AnonymousBind("a profile with a long identifier", "the.second.token")},
            "a profile with a long identifier",
            revision};
}

bool isEveryThreads() noexcept {
    return true;
}

class BindStoreMemory : public testing::TestWithParam<Failing> {
  protected:
    TestSupport::TemporaryDirectory directory;
    std::filesystem::path file = directory / "binds";
};

TEST_P(BindStoreMemory, ASaveThatCannotBeDoneSaysSoAndLeavesTheFileWhole) {
    std::optional<std::string> failure;
    bool wasLacking = false;
    std::uint64_t revision = 1;
    for (long at = 1;; ++at) {
        const HeldBinds before = FileBindStore(file).load().held;
        bool hasFailed = false;
        {
            FileBindStore store(file);
            HeldBinds held = heldBinds(++revision);
            const FailingAllocations failing(GetParam(), at, &isEveryThreads);
            store.save(std::move(held));
            try {
                failure = store.flush();
            } catch (const std::bad_alloc&) {
                failure = "no memory for the reason";
            }
            failing.end();
            hasFailed = failing.hasFailed();
        }
        const auto loaded = FileBindStore(file).load();
        EXPECT_EQ(loaded.warning, std::nullopt) << at;
        EXPECT_THAT(loaded.held.revision, AnyOf(before.revision, revision)) << at;
        EXPECT_TRUE(failure || loaded.held.revision == revision) << at;
        EXPECT_EQ(loaded.held.binds.size(), loaded.held.revision == 0 ? 0U : 2U) << at;
        wasLacking |= failure.has_value();
        if (!hasFailed) break;
    }
    EXPECT_TRUE(wasLacking);
    EXPECT_EQ(failure, std::nullopt);
    EXPECT_THAT(directory.names(), ElementsAre("binds"));
}

TEST_P(BindStoreMemory, TheNextSaveAfterALackOfMemorySucceeds) {
    FileBindStore store(file);
    for (long at = 1;; ++at) {
        bool hasFailed = false;
        {
            HeldBinds held = heldBinds(static_cast<std::uint64_t>(2 * at));
            const FailingAllocations failing(GetParam(), at, &isEveryThreads);
            store.save(std::move(held));
            try {
                static_cast<void>(store.flush());
            } catch (const std::bad_alloc&) {
            }
            hasFailed = failing.hasFailed();
        }
        store.save(heldBinds(static_cast<std::uint64_t>(2 * at + 1)));
        EXPECT_EQ(store.flush(), std::nullopt) << at;
        if (!hasFailed) break;
    }
    EXPECT_THAT(directory.names(), ElementsAre("binds"));
}

TEST_P(BindStoreMemory, LoadingGivesAllOrNothingAndAWarning) {
    FileBindStore(file).save(heldBinds(1));
    bool wasLacking = false;
    for (long at = 1;; ++at) {
        FileBindStore store(file);
        std::optional<KestrinConfigManager::BindStore::Loaded> loaded;
        const FailingAllocations failing(GetParam(), at, &isEveryThreads);
        loaded = store.load();
        failing.end();
        if (loaded->warning) {
            EXPECT_THAT(loaded->warning, Optional(HasSubstr("out of memory"))) << at;
            EXPECT_THAT(loaded->held.binds, testing::IsEmpty()) << at;
            EXPECT_EQ(loaded->held.revision, 0U) << at;
            wasLacking = true;
        } else {
            EXPECT_EQ(loaded->held.binds, heldBinds(1).binds) << at;
        }
        if (!failing.hasFailed()) break;
    }
    EXPECT_TRUE(wasLacking);
}

INSTANTIATE_TEST_SUITE_P(Of, BindStoreMemory, testing::Values(Failing::one, Failing::allFrom),
                         [](const auto& each) {
                             return each.param == Failing::one ? "OneAllocation" : "AllFromOneOn";
                         });

}  // namespace
