#include <barrier>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/FileBindStore.hpp>
#include <KestrinConfigManager/WebService.hpp>

#include "Support.hpp"
#include "support/Program.hpp"

namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::BindStore;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::FileBindStore;
using KestrinConfigManager::HeldBinds;
using KestrinConfigManager::ServiceTable;
using KestrinConfigManager::WebService;
using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::held;
using TestSupport::numbered;

Configuration configurationOf(std::string parent) {
    return {.parentProfileID = std::move(parent), .brand = {}, .services = {}};
}

/// Runs an action when it is destroyed.
class AtEnd {
  public:
    explicit AtEnd(std::function<void()> action) : action_(std::move(action)) {}
    AtEnd(const AtEnd&) = delete;
    AtEnd(AtEnd&&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;
    AtEnd& operator=(AtEnd&&) = delete;
    ~AtEnd() { action_(); }

  private:
    std::function<void()> action_;
};

/// A store that remembers what it was told. Each call looks into the manager first, which hangs if
/// that still holds its lock.
class RecordingStore final : public BindStore {
  public:
    explicit RecordingStore(const ConfigurationManager& manager, Loaded content = {})
        : manager_(manager), content_(std::move(content)) {}
    ~RecordingStore() override { static_cast<void>(manager_.bind(false)); }

    Loaded load() override {
        static_cast<void>(manager_.bind(false));
        ++loads;
        return content_;
    }

    void save(HeldBinds state) override {
        static_cast<void>(manager_.bind(false));
        saved.push_back(std::move(state));
    }

    int loads = 0;
    std::vector<HeldBinds> saved;

  private:
    const ConfigurationManager& manager_;
    Loaded content_;
};

class ConfigurationManagerTest : public testing::Test {
  protected:
    void hold(const std::string& profileID, const std::string& token) {
        manager.setBindProfileID(profileID);
        manager.setBindToken(token);
    }

    std::shared_ptr<RecordingStore> recordingStore(BindStore::Loaded content = {}) {
        return std::make_shared<RecordingStore>(manager, std::move(content));
    }

    ConfigurationManager manager;
};

TEST_F(ConfigurationManagerTest, HoldsNothingAtFirst) {
    EXPECT_EQ(manager.currentConfiguration(), nullptr);
    EXPECT_EQ(manager.bind(true), std::nullopt);
    EXPECT_EQ(manager.bind(false), std::nullopt);
    EXPECT_EQ(manager.selectedProfileID(), std::nullopt);
}

TEST_F(ConfigurationManagerTest, ASnapshotStaysWhileAnotherReplacesIt) {
    manager.configure(configurationOf("first"));
    const auto snapshot = manager.currentConfiguration();
    manager.configure(configurationOf("second"));
    EXPECT_EQ(snapshot->parentProfileID, "first");
    EXPECT_EQ(manager.currentConfiguration()->parentProfileID, "second");
    manager.removeConfiguration();
    EXPECT_EQ(manager.currentConfiguration(), nullptr);
    EXPECT_EQ(snapshot->parentProfileID, "first");
}

TEST_F(ConfigurationManagerTest, BindsStayWhenTheConfigurationGoes) {
    manager.configure(configurationOf("parent"));
    hold("parent", "t");
    manager.removeConfiguration();
    EXPECT_EQ(manager.bind(false), AnonymousBind("parent", "t"));
    EXPECT_EQ(manager.bind(true), std::nullopt) << "without configuration there is no parent";
    manager.configure(configurationOf("parent"));
    EXPECT_EQ(manager.bind(true), AnonymousBind("parent", "t"));
}

TEST_F(ConfigurationManagerTest, TheParentsBindIsThatOfTheParentProfile) {
    manager.configure(configurationOf("parent"));
    hold("child", "c");
    EXPECT_EQ(manager.bind(true), std::nullopt);
    hold("parent", "p");
    EXPECT_EQ(manager.bind(true), AnonymousBind("parent", "p"));
    EXPECT_EQ(manager.bind(false), AnonymousBind("child", "c"));
    manager.configure(configurationOf("child"));
    EXPECT_EQ(manager.bind(true), AnonymousBind("child", "c"));
}

TEST_F(ConfigurationManagerTest, TheFirstBindSelectsItsProfileAndLaterOnesDoNot) {
    hold("first", "1");
    EXPECT_EQ(manager.selectedProfileID(), "first");
    hold("second", "2");
    EXPECT_EQ(manager.selectedProfileID(), "first");
    EXPECT_EQ(manager.bind(false), AnonymousBind("first", "1"));
}

TEST_F(ConfigurationManagerTest, ASelectedProfileIsNotReplacedByTheFirstBind) {
    manager.selectProfile("chosen");
    EXPECT_EQ(manager.bind(false), std::nullopt);
    hold("other", "o");
    EXPECT_EQ(manager.selectedProfileID(), "chosen");
    EXPECT_EQ(manager.bind(false), std::nullopt);
    hold("chosen", "c");
    EXPECT_EQ(manager.bind(false), AnonymousBind("chosen", "c"));
}

TEST_F(ConfigurationManagerTest, SelectingAProfileMakesItsBindTheCurrentOne) {
    hold("a", "1");
    hold("b", "2");
    manager.selectProfile("b");
    EXPECT_EQ(manager.bind(false), AnonymousBind("b", "2"));
    manager.selectProfile("c");
    EXPECT_EQ(manager.bind(false), std::nullopt);
    manager.selectProfile("a");
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "1"));
}

TEST_F(ConfigurationManagerTest, ANewTokenReplacesTheFormerOneOfTheSameProfile) {
    hold("p", "old");
    hold("p", "new");
    EXPECT_EQ(manager.bind(false), AnonymousBind("p", "new"));
}

TEST_F(ConfigurationManagerTest, AnExpiredBindIsStillHeld) {
    const std::string expired = TestSupport::webToken(R"({"exp":1})");
    hold("p", expired);
    ASSERT_TRUE(manager.bind(false).has_value());
    EXPECT_FALSE(manager.bind(false)->isValid());
}

TEST_F(ConfigurationManagerTest, ABindIsStoredAtOnce) {
    const auto store = recordingStore();
    manager.useBindStore(store);
    manager.storeBind({"a", "1"});
    EXPECT_EQ(manager.selectedProfileID(), "a");
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "1"));
    manager.storeBind({"b", "2"});
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "1"));
    manager.storeBind({"a", "3"});
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "3"));
    manager.storeBind({"a", "3"});
    EXPECT_EQ(store->saved.size(), 3U) << "the last one changes nothing";
}

TEST_F(ConfigurationManagerTest, StoringABindAtOnceLeavesWhatWasNotedAlone) {
    manager.setBindProfileID("a");
    manager.storeBind({"b", "2"});
    manager.setBindToken("1");
    manager.selectProfile("a");
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "1"));
}

TEST_F(ConfigurationManagerTest, AProfileIdentifierAloneHoldsNothing) {
    manager.setBindProfileID("p");
    EXPECT_EQ(manager.selectedProfileID(), std::nullopt);
    manager.selectProfile("p");
    EXPECT_EQ(manager.bind(false), std::nullopt);
}

TEST_F(ConfigurationManagerTest, ATokenWithoutProfileIdentifierDoesNothing) {
    manager.setBindToken("t");
    EXPECT_EQ(manager.selectedProfileID(), std::nullopt);
    hold("p", "t");
    manager.setBindToken("again");
    EXPECT_EQ(manager.bind(false), AnonymousBind("p", "t"));
    manager.setBindToken(std::nullopt);
    EXPECT_EQ(manager.bind(false), AnonymousBind("p", "t"));
}

TEST_F(ConfigurationManagerTest, TheLastIdentifierBeforeTheTokenCounts) {
    manager.setBindProfileID("a");
    manager.setBindProfileID("b");
    manager.setBindToken("t");
    EXPECT_EQ(manager.bind(false), AnonymousBind("b", "t"));
}

TEST_F(ConfigurationManagerTest, AnAbsentTokenDropsTheBindOfThatProfileAlone) {
    hold("a", "1");
    hold("b", "2");
    manager.setBindProfileID("a");
    manager.setBindToken(std::nullopt);
    EXPECT_EQ(manager.bind(false), std::nullopt);
    EXPECT_EQ(manager.selectedProfileID(), "a");
    manager.selectProfile("b");
    EXPECT_EQ(manager.bind(false), AnonymousBind("b", "2"));
}

TEST_F(ConfigurationManagerTest, DroppingAllBindsKeepsTheSelection) {
    hold("a", "1");
    hold("b", "2");
    manager.dropBinds();
    EXPECT_EQ(manager.bind(false), std::nullopt);
    EXPECT_EQ(manager.selectedProfileID(), "a");
    hold("b", "3");
    EXPECT_EQ(manager.selectedProfileID(), "a");
    hold("a", "4");
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "4"));
}

TEST_F(ConfigurationManagerTest, BindsFromTwoInterleavedThreadsAreNeverMixed) {
    std::barrier step(2);
    std::thread other([&] {
        step.arrive_and_wait();
        manager.setBindProfileID("other");
        step.arrive_and_wait();
        step.arrive_and_wait();
        manager.setBindToken("of other");
    });
    manager.setBindProfileID("mine");
    step.arrive_and_wait();
    step.arrive_and_wait();
    manager.setBindToken("of mine");
    step.arrive_and_wait();
    other.join();

    EXPECT_EQ(manager.bind(false), AnonymousBind("mine", "of mine"));
    manager.selectProfile("other");
    EXPECT_EQ(manager.bind(false), AnonymousBind("other", "of other"));
}

TEST_F(ConfigurationManagerTest, WhatAnEndedThreadNotedFallsToNobody) {
    for (int round = 0; round < 50; ++round) {
        std::thread([&] { manager.setBindProfileID("abandoned"); }).join();
        std::thread([&] { manager.setBindToken("stray"); }).join();
    }
    manager.selectProfile("abandoned");
    EXPECT_EQ(manager.bind(false), std::nullopt);
}

TEST_F(ConfigurationManagerTest, WhatIsNotedForOneManagerIsNotForAnother) {
    ConfigurationManager another;
    manager.setBindProfileID("p");
    another.setBindToken("t");
    another.selectProfile("p");
    EXPECT_EQ(another.bind(false), std::nullopt);
    manager.setBindToken("t");
    EXPECT_EQ(manager.bind(false), AnonymousBind("p", "t"));
}

TEST_F(ConfigurationManagerTest, AGoodFileBecomesTheConfiguration) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::write(directory / "c.json", R"({"version":1,"parentProfileID":"file"})");
    EXPECT_THAT(manager.load(directory / "c.json"), IsEmpty());
    ASSERT_NE(manager.currentConfiguration(), nullptr);
    EXPECT_EQ(manager.currentConfiguration()->parentProfileID, "file");
}

TEST_F(ConfigurationManagerTest, AFileWithProblemsLeavesTheFormerConfiguration) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::write(directory / "c.json", R"({"version":2})");
    manager.configure(configurationOf("former"));
    const auto problems = manager.load(directory / "c.json");
    ASSERT_EQ(problems.size(), 2U);
    EXPECT_EQ(problems[0].path, "$.version");
    EXPECT_EQ(problems[1].path, "$.parentProfileID");
    EXPECT_EQ(manager.currentConfiguration()->parentProfileID, "former");
    EXPECT_EQ(manager.load(directory / "none.json").size(), 1U);
    EXPECT_EQ(manager.currentConfiguration()->parentProfileID, "former");
}

// The reaction to a forbidden reply.

TEST_F(ConfigurationManagerTest, AForbiddenReplyDropsAllBindsAndThenCallsTheHandler) {
    const auto store = recordingStore();
    manager.useBindStore(store);
    hold("a", "1");
    hold("b", "2");
    int calls = 0;
    manager.setForbiddenReplyHandler([&] {
        ++calls;
        EXPECT_EQ(manager.bind(false), std::nullopt);
        EXPECT_THAT(store->saved.back().binds, IsEmpty());
    });
    manager.reactToForbiddenReply();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(manager.selectedProfileID(), "a");
    EXPECT_EQ(store->saved.back().selectedProfileID, "a");
}

TEST_F(ConfigurationManagerTest, AForbiddenReplyWithoutHandlerDropsTheBinds) {
    hold("a", "1");
    manager.reactToForbiddenReply();
    EXPECT_EQ(manager.bind(false), std::nullopt);
}

TEST_F(ConfigurationManagerTest, TheHandlerIsDueAgainOnceABindIsStored) {
    int calls = 0;
    manager.setForbiddenReplyHandler([&] { ++calls; });
    const auto callsAfter = [&](int replies) {
        for (int reply = 0; reply < replies; ++reply)
            manager.reactToForbiddenReply();
        return calls;
    };
    EXPECT_EQ(callsAfter(3), 1);
    manager.selectProfile("a");
    manager.configure(configurationOf("parent"));
    manager.setBindProfileID("a");
    manager.setBindToken(std::nullopt);
    EXPECT_EQ(callsAfter(3), 1) << "no bind was stored";
    hold("a", "1");
    EXPECT_EQ(callsAfter(3), 2);
    manager.storeBind({"a", "1"});
    EXPECT_EQ(callsAfter(3), 3);
    manager.setForbiddenReplyHandler([&] { ++calls; });
    EXPECT_EQ(callsAfter(3), 4) << "a handler is due when it is set";
}

TEST_F(ConfigurationManagerTest, ARefusedReplyDropsTheBindsAlsoIfTheHandlerIsNotDue) {
    manager.setForbiddenReplyHandler([] {});
    manager.reactToForbiddenReply();
    hold("a", "1");
    manager.reactToForbiddenReply();
    EXPECT_EQ(manager.bind(false), std::nullopt);
}

TEST_F(ConfigurationManagerTest, TheHandlerMayUseTheManagerAndReplaceItself) {
    int calls = 0;
    const auto guard = std::make_shared<AtEnd>([&] { manager.dropBinds(); });
    manager.setForbiddenReplyHandler([&, guard] {
        ++calls;
        manager.setForbiddenReplyHandler({});
        manager.configure(configurationOf("new"));
        hold("new", "t");
        manager.reactToForbiddenReply();
        hold("new", "t2");
    });
    manager.reactToForbiddenReply();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(manager.bind(true), AnonymousBind("new", "t2"));
    manager.reactToForbiddenReply();
    EXPECT_EQ(calls, 1);
}

TEST_F(ConfigurationManagerTest, AReplacedReactionStandsAlone) {
    hold("a", "1");
    int reactions = 0;
    int handled = 0;
    manager.setForbiddenReplyHandler([&] { ++handled; });
    manager.setForbiddenReplyReaction([&] {
        ++reactions;
        EXPECT_EQ(manager.bind(false), AnonymousBind("a", "1"));
    });
    manager.reactToForbiddenReply();
    EXPECT_EQ(reactions, 1);
    EXPECT_EQ(handled, 0);
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "1"));

    manager.setForbiddenReplyReaction({});
    manager.reactToForbiddenReply();
    EXPECT_EQ(reactions, 1);
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(manager.bind(false), std::nullopt);
}

TEST_F(ConfigurationManagerTest, WhatIsTakenOutOfUseMayUseTheManagerWhileItEnds) {
    int ended = 0;
    const auto probe = [&] {
        return std::make_shared<AtEnd>([&] {
            ++ended;
            manager.selectProfile(numbered("p", ended));
        });
    };
    manager.setForbiddenReplyHandler([held = probe()] {});
    manager.setForbiddenReplyHandler({});
    manager.setForbiddenReplyReaction([held = probe()] {});
    manager.setForbiddenReplyReaction({});

    const auto withGuard = [&] {
        WebService service;
        service.operation = "op";
        service.guard = [held = probe()](const auto&, const auto&) { return std::nullopt; };
        ServiceTable table;
        table.add(std::move(service));
        Configuration configuration = configurationOf("parent");
        configuration.services = std::make_shared<const ServiceTable>(std::move(table));
        return configuration;
    };
    manager.configure(withGuard());
    manager.configure(withGuard());
    EXPECT_EQ(ended, 3);
    manager.removeConfiguration();
    EXPECT_EQ(ended, 4);
    EXPECT_EQ(manager.selectedProfileID(), "p4");
}

// Stores.

TEST_F(ConfigurationManagerTest, AStoreGetsEveryChangeWithARevisionThatGrows) {
    const auto store = recordingStore();
    EXPECT_EQ(manager.useBindStore(store), std::nullopt);
    EXPECT_EQ(store->loads, 1);
    EXPECT_THAT(store->saved, IsEmpty());

    hold("a", "1");
    hold("b", "2");
    manager.selectProfile("b");
    manager.setBindProfileID("a");
    manager.setBindToken(std::nullopt);
    manager.dropBinds();

    ASSERT_EQ(store->saved.size(), 5U);
    EXPECT_THAT(store->saved[0].binds, ElementsAre(AnonymousBind("a", "1")));
    EXPECT_EQ(store->saved[0].selectedProfileID, "a");
    EXPECT_THAT(store->saved[1].binds,
                ElementsAre(AnonymousBind("a", "1"), AnonymousBind("b", "2")));
    EXPECT_EQ(store->saved[2].selectedProfileID, "b");
    EXPECT_THAT(store->saved[3].binds, ElementsAre(AnonymousBind("b", "2")));
    EXPECT_THAT(store->saved[4].binds, IsEmpty());
    for (std::size_t at = 1; at < store->saved.size(); ++at)
        EXPECT_GT(store->saved[at].revision, store->saved[at - 1].revision);
    EXPECT_EQ(store->loads, 1);
}

TEST_F(ConfigurationManagerTest, AStoreIsLeftAloneWhereNothingChanges) {
    const auto store = recordingStore();
    manager.useBindStore(store);
    hold("a", "1");
    ASSERT_EQ(store->saved.size(), 1U);

    hold("a", "1");
    manager.selectProfile("a");
    manager.setBindProfileID("unknown");
    manager.setBindToken(std::nullopt);
    manager.setBindToken("nothing noted");
    EXPECT_EQ(store->saved.size(), 1U);
    manager.dropBinds();
    manager.dropBinds();
    EXPECT_EQ(store->saved.size(), 2U);
}

TEST_F(ConfigurationManagerTest, WhatAStoreHoldsReplacesWhatIsHeld) {
    hold("former", "f");
    const auto store = recordingStore({held(41, "stored", "s"), "a warning"});
    EXPECT_EQ(manager.useBindStore(store), "a warning");
    EXPECT_EQ(manager.selectedProfileID(), "stored");
    EXPECT_EQ(manager.bind(false), AnonymousBind("stored", "s"));
    manager.selectProfile("former");
    EXPECT_EQ(manager.bind(false), std::nullopt);
    ASSERT_EQ(store->saved.size(), 1U);
    EXPECT_EQ(store->saved.front().revision, 42U);
}

TEST_F(ConfigurationManagerTest, StoredBindsThatNoHeaderCanCarryAreDroppedHereAndFromTheStore) {
    HeldBinds stored;
    stored.binds = {{"a", "s3cret\r\n"}, {"b", "fine"}, {"c\xC3\xB6", "s3cret"}, {"d", ""}};
    stored.selectedProfileID = "a";
    stored.revision = 7;
    const auto store = recordingStore({stored, "a warning"});
    const auto warning = manager.useBindStore(store);
    ASSERT_TRUE(warning);
    EXPECT_THAT(*warning,
                testing::AllOf(testing::HasSubstr("a warning"), testing::HasSubstr("\"profileId\""),
                               testing::Not(testing::HasSubstr("s3cret"))));
    EXPECT_EQ(manager.bind(false), std::nullopt);
    EXPECT_EQ(manager.selectedProfileID(), "a");
    ASSERT_EQ(store->saved.size(), 1U);
    EXPECT_THAT(store->saved[0].binds,
                ElementsAre(AnonymousBind("b", "fine"), AnonymousBind("d", "")));
    EXPECT_EQ(store->saved[0].revision, 8U);
}

TEST_F(ConfigurationManagerTest, ARevisionNeverFallsWhenTheStoreChanges) {
    const auto first = recordingStore({held(100, "p", "t"), {}});
    manager.useBindStore(first);
    const auto second = recordingStore({held(3, "p", "t"), {}});
    manager.useBindStore(second);
    manager.selectProfile("q");
    EXPECT_THAT(first->saved, IsEmpty());
    ASSERT_EQ(second->saved.size(), 1U);
    EXPECT_EQ(second->saved.front().revision, 101U);
}

TEST_F(ConfigurationManagerTest, ABindThatWasStoredWithoutSelectionSelectsItsProfileWhenSetAgain) {
    HeldBinds unselected;
    unselected.binds = {{"p", "t"}};
    manager.useBindStore(recordingStore({unselected, {}}));
    EXPECT_EQ(manager.bind(false), std::nullopt);
    hold("p", "t");
    EXPECT_EQ(manager.bind(false), AnonymousBind("p", "t"));
}

TEST_F(ConfigurationManagerTest, WithoutStoreBindsStayInMemory) {
    const auto store = recordingStore();
    manager.useBindStore(store);
    hold("a", "1");
    EXPECT_EQ(manager.useBindStore(nullptr), std::nullopt);
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "1"));
    hold("a", "2");
    EXPECT_EQ(store->saved.size(), 1U);
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "2"));
}

TEST_F(ConfigurationManagerTest, AStoreThatIsReplacedEndsWithoutLock) {
    manager.useBindStore(recordingStore());
    manager.useBindStore(recordingStore());
    manager.useBindStore(nullptr);
    hold("a", "1");
    EXPECT_EQ(manager.bind(false), AnonymousBind("a", "1"));
}

TEST_F(ConfigurationManagerTest, BindsInAFileOutliveTheManager) {
    const TestSupport::TemporaryDirectory directory;
    {
        ConfigurationManager former;
        EXPECT_EQ(former.useBindStore(std::make_shared<FileBindStore>(directory / "b.json")),
                  std::nullopt);
        former.setBindProfileID("a");
        former.setBindToken("1");
        former.setBindProfileID("b");
        former.setBindToken("2");
        former.selectProfile("b");
    }
    EXPECT_EQ(manager.useBindStore(std::make_shared<FileBindStore>(directory / "b.json")),
              std::nullopt);
    EXPECT_EQ(manager.bind(false), AnonymousBind("b", "2"));

    manager.reactToForbiddenReply();
    manager.useBindStore(nullptr);
    EXPECT_THAT(FileBindStore(directory / "b.json").load().held.binds, IsEmpty());
}

// The shared instance.

class SharedInstance : public testing::Test {
  protected:
    ~SharedInstance() override {
        ConfigurationManager::sharedInstance().removeConfiguration();
        ConfigurationManager::sharedInstance().dropBinds();
    }
};

TEST_F(SharedInstance, IsAlwaysTheSame) {
    EXPECT_EQ(&ConfigurationManager::sharedInstance(), &ConfigurationManager::sharedInstance());
}

TEST_F(SharedInstance, AnswersTheStaticQuestions) {
    EXPECT_EQ(ConfigurationManager::parentProfileID(), "");
    EXPECT_EQ(ConfigurationManager::profileBind(true), std::nullopt);
    auto& shared = ConfigurationManager::sharedInstance();
    shared.configure(configurationOf("parent"));
    shared.setBindProfileID("child");
    shared.setBindToken("c");
    shared.setBindProfileID("parent");
    shared.setBindToken("p");
    shared.selectProfile("child");
    EXPECT_EQ(ConfigurationManager::parentProfileID(), "parent");
    EXPECT_EQ(ConfigurationManager::profileBind(true), AnonymousBind("parent", "p"));
    EXPECT_EQ(ConfigurationManager::profileBind(false), AnonymousBind("child", "c"));
}

constexpr int stillThere = 42;

[[noreturn]] void endProcessAndLookAfterStaticsAreGone() {
    // Runs after the destructors of all statics that are made later than this.
    const int registered = std::atexit([] {
        auto& shared = ConfigurationManager::sharedInstance();
        const bool works = shared.bind(false) == AnonymousBind("late", "t");
        shared.setBindProfileID("late");
        shared.setBindToken("later");
        ::_exit(works && shared.bind(false)->token == "later" ? stillThere : 1);
    });
    if (registered != 0) ::_exit(1);
    auto& shared = ConfigurationManager::sharedInstance();
    shared.selectProfile("late");
    shared.setBindProfileID("late");
    shared.setBindToken("t");
    std::exit(0);  // NOLINT(concurrency-mt-unsafe): the only thread of the process
}

using SharedInstanceDeathTest = SharedInstance;

TEST_F(SharedInstanceDeathTest, CanBeUsedUntilTheProcessHasEnded) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(endProcessAndLookAfterStaticsAreGone(), testing::ExitedWithCode(stillThere), "");
}

}  // namespace
