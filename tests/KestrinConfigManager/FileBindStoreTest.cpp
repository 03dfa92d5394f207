#include <chrono>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/FileBindStore.hpp>

#include "Support.hpp"
#include "support/Program.hpp"
#include "support/Rounds.hpp"
#include "support/Waiting.hpp"

namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::FileBindStore;
using KestrinConfigManager::HeldBinds;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using TestSupport::contentOf;
using TestSupport::held;
using TestSupport::numbered;
using TestSupport::write;

unsigned modeOf(const std::filesystem::path& file) {
    return static_cast<unsigned>(std::filesystem::symlink_status(file).permissions());
}

class FileBindStoreTest : public testing::Test {
  protected:
    /// What a store that comes later reads.
    [[nodiscard]] FileBindStore::Loaded loaded() const { return FileBindStore(file).load(); }

    void expectNoBindAndAWarning(const std::string& part) const {
        const auto result = loaded();
        EXPECT_THAT(result.held.binds, IsEmpty());
        EXPECT_EQ(result.held.selectedProfileID, std::nullopt);
        ASSERT_TRUE(result.warning.has_value());
        EXPECT_THAT(*result.warning,
                    AllOf(HasSubstr(part), HasSubstr(file.string()), Not(HasSubstr("s3cret"))));
    }

    TestSupport::TemporaryDirectory directory;
    std::filesystem::path file = directory / "binds.json";
};

TEST_F(FileBindStoreTest, AFileThatDoesNotExistHoldsNothingAndThatIsFine) {
    const auto result = loaded();
    EXPECT_THAT(result.held.binds, IsEmpty());
    EXPECT_EQ(result.held.selectedProfileID, std::nullopt);
    EXPECT_EQ(result.held.revision, 0U);
    EXPECT_EQ(result.warning, std::nullopt);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(FileBindStoreTest, WhatIsSavedIsLoaded) {
    HeldBinds state;
    state.binds = {{"p1", "t\"1\n"}, {"pröfile 2", ""}};
    state.selectedProfileID = "pröfile 2";
    state.revision = 7;
    {
        FileBindStore store(file);
        store.save(state);
        EXPECT_EQ(store.flush(), std::nullopt);
    }
    const auto result = loaded();
    EXPECT_EQ(result.warning, std::nullopt);
    EXPECT_EQ(result.held.binds, state.binds);
    EXPECT_EQ(result.held.selectedProfileID, state.selectedProfileID);
    EXPECT_EQ(result.held.revision, 7U);
}

TEST_F(FileBindStoreTest, AStateWithoutBindAndSelectionIsAState) {
    FileBindStore store(file);
    store.save(held(1, "p", "t"));
    store.save({.binds = {}, .selectedProfileID = {}, .revision = 2});
    EXPECT_EQ(store.flush(), std::nullopt);
    const auto result = loaded();
    EXPECT_THAT(result.held.binds, IsEmpty());
    EXPECT_EQ(result.held.selectedProfileID, std::nullopt);
    EXPECT_EQ(result.held.revision, 2U);
    EXPECT_EQ(result.warning, std::nullopt);
}

TEST_F(FileBindStoreTest, TheContentIsVersionedJson) {
    FileBindStore store(file);
    store.save(held(3, "p", "t"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_EQ(contentOf(file), R"({"version":1,"revision":3,"selectedProfileID":"p",)"
                               R"("binds":[{"profileId":"p","token":"t"}]})");
}

TEST_F(FileBindStoreTest, OnlyTheOwnerMayReadTheFile) {
    const mode_t former = ::umask(0);
    {
        FileBindStore store(file);
        store.save(held(1, "p", "t"));
    }
    ::umask(former);
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_THAT(directory.names(), ElementsAre("binds.json"));
}

TEST_F(FileBindStoreTest, AFileThatOthersMayReadIsLoadedWithAWarningAndClosed) {
    FileBindStore store(file);
    store.save(held(1, "p", "s3cret"));
    EXPECT_EQ(store.flush(), std::nullopt);
    for (const mode_t mode : {0604U, 0640U, 0644U, 0601U, 0611U, 0744U, 0655U}) {
        ASSERT_EQ(::chmod(file.c_str(), mode), 0);
        const auto result = store.load();
        EXPECT_THAT(result.held.binds, ElementsAre(AnonymousBind("p", "s3cret")));
        ASSERT_TRUE(result.warning.has_value());
        EXPECT_THAT(*result.warning, AllOf(HasSubstr("others"), Not(HasSubstr("s3cret"))));
        EXPECT_EQ(modeOf(file), mode & 0700U);
        EXPECT_EQ(store.load().warning, std::nullopt);
    }
}

TEST_F(FileBindStoreTest, AFileThatOthersMayChangeIsNotTrustedUntilItIsReplaced) {
    FileBindStore store(file);
    store.save(held(1, "p", "s3cret"));
    EXPECT_EQ(store.flush(), std::nullopt);
    for (const mode_t mode : {0602U, 0620U, 0666U, 0660U, 0777U}) {
        ASSERT_EQ(::chmod(file.c_str(), mode), 0);
        expectNoBindAndAWarning("not used");
        expectNoBindAndAWarning("not used");
    }
    store.save(held(2, "p", "s3cret"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_EQ(store.load().warning, std::nullopt);
}

TEST_F(FileBindStoreTest, AFileOfAnotherUserIsNotUsedUntilItIsReplaced) {
    if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can give a file away";
    FileBindStore store(file);
    store.save(held(1, "p", "s3cret"));
    EXPECT_EQ(store.flush(), std::nullopt);
    ASSERT_EQ(::chown(file.c_str(), 12345, 12345), 0);
    expectNoBindAndAWarning("another user");
    store.save(held(2, "p", "s3cret"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_EQ(store.load().held.revision, 2U);
}

TEST_F(FileBindStoreTest, TheGreatestRevisionOfAFileDoesNotSpoilWhatIsSavedAfterIt) {
    constexpr std::uint64_t greatest = 9223372036854775807U;
    write(file, R"({"version":1,"revision":9223372036854775807,"binds":[]})");
    ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
    ASSERT_EQ(loaded().held.revision, greatest);
    FileBindStore store(file);
    for (const std::uint64_t more : {1U, 2U, 3U}) {
        store.save(held(greatest + more, "p", numbered("t", more)));
        EXPECT_EQ(store.flush(), std::nullopt);
        const auto result = loaded();
        EXPECT_EQ(result.warning, std::nullopt);
        EXPECT_THAT(result.held.binds, ElementsAre(AnonymousBind("p", numbered("t", more))));
    }
}

TEST_F(FileBindStoreTest, EndingAStoreWritesWhatIsStillWaiting) {
    for (std::uint64_t revision = 1; revision <= 20; ++revision) {
        FileBindStore(file).save(held(revision, "p", numbered("t", revision)));
        EXPECT_EQ(loaded().held.revision, revision);
    }
}

TEST_F(FileBindStoreTest, OfManyStatesTheNewestOneStays) {
    FileBindStore store(file);
    for (std::uint64_t revision = 1; revision <= 500; ++revision)
        store.save(held(revision, "p", numbered("t", revision)));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_THAT(loaded().held.binds, ElementsAre(AnonymousBind("p", "t500")));
}

TEST_F(FileBindStoreTest, AStateThatArrivesLateDoesNotReplaceANewerOne) {
    FileBindStore store(file);
    store.save(held(5, "p", "new"));
    store.save(held(3, "p", "old"));
    EXPECT_EQ(store.flush(), std::nullopt);
    store.save(held(4, "p", "old"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_THAT(loaded().held.binds, ElementsAre(AnonymousBind("p", "new")));
    store.save(held(6, "p", "newest"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_THAT(loaded().held.binds, ElementsAre(AnonymousBind("p", "newest")));
}

TEST_F(FileBindStoreTest, LoadingSeesWhatThisStoreHasStillToWrite) {
    FileBindStore store(file);
    for (std::uint64_t revision = 1; revision <= 20; ++revision) {
        store.save(held(revision, "p", "t"));
        EXPECT_EQ(store.load().held.revision, revision);
    }
}

TEST_F(FileBindStoreTest, FlushWithoutAnythingSavedReturnsAtOnce) {
    EXPECT_EQ(FileBindStore(file).flush(), std::nullopt);
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(FileBindStoreTest, StatesFromManyThreadsEndWithTheNewest) {
    FileBindStore store(file);
    std::vector<std::thread> threads;
    for (std::uint64_t first = 1; first <= 4; ++first)
        threads.emplace_back([&store, first] {
            for (std::uint64_t revision = first; revision <= 200; revision += 4) {
                store.save(held(revision, "p", numbered("t", revision)));
                if (revision % 50 < 4) {
                    EXPECT_EQ(store.flush(), std::nullopt);
                }
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_EQ(loaded().held.revision, 200U);
}

TEST_F(FileBindStoreTest, ASymbolicLinkIsNotFollowedWhenLoading) {
    {
        FileBindStore target(directory / "target.json");
        target.save(held(1, "p", "s3cret"));
    }
    std::filesystem::create_symlink(directory / "target.json", file);
    expectNoBindAndAWarning("symbolic link");
}

TEST_F(FileBindStoreTest, SavingReplacesASymbolicLinkAndLeavesItsTargetAlone) {
    write(directory / "target.json", "untouched");
    std::filesystem::create_symlink(directory / "target.json", file);
    FileBindStore store(file);
    store.save(held(1, "p", "t"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_EQ(contentOf(directory / "target.json"), "untouched");
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(file)));
    EXPECT_EQ(loaded().held.revision, 1U);
}

TEST_F(FileBindStoreTest, WhatIsNoRegularFileIsNotRead) {
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    expectNoBindAndAWarning("not a regular file");
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    expectNoBindAndAWarning("not a regular file");
}

TEST_F(FileBindStoreTest, ADamagedFileCountsAsNoBindAndStays) {
    const std::string bind = R"({"profileId":"p","token":"s3cret"})";
    for (const std::string& content : std::vector<std::string>{
             "", "s3cret", "[]", "{", R"({"version":1,"revision":3,"binds":[{"profileId":"p","to)",
             R"({"revision":3,"binds":[]})", R"({"version":2,"revision":3,"binds":[]})",
             R"({"version":"1","revision":3,"binds":[]})", R"({"version":1,"binds":[]})",
             R"({"version":1,"revision":-1,"binds":[]})",
             R"({"version":1,"revision":1.5,"binds":[]})", R"({"version":1,"revision":1})",
             R"({"version":1,"revision":1,"binds":{}})",
             R"({"version":1,"revision":1,"binds":[1]})",
             R"({"version":1,"revision":1,"binds":[{"profileId":"s3cret"}]})",
             R"({"version":1,"revision":1,"binds":[)" + bind + "," + bind + "]}",
             R"({"version":1,"revision":1,"selectedProfileID":1,"binds":[)" + bind + "]}",
             R"({"version":1,"revision":1,"selectedProfileID":null,"binds":[)" + bind + "]}",
             R"({"version":1,"revision":1,"binds":[)" + bind + "]} x"}) {
        write(file, content);
        ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
        expectNoBindAndAWarning("is ");
        EXPECT_EQ(contentOf(file), content);
    }
    FileBindStore store(file);
    store.save(held(1, "p", "t"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_EQ(loaded().held.revision, 1U);
}

TEST_F(FileBindStoreTest, AFileThatIsFarTooLargeIsNotRead) {
    write(file, "{}");
    std::filesystem::resize_file(file, (std::size_t{16} << 20) + 1);
    ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
    expectNoBindAndAWarning("cannot be read");
}

TEST_F(FileBindStoreTest, AMissingDirectoryIsAFailureUntilItIsThere) {
    file = directory / "missing" / "binds.json";
    FileBindStore store(file);
    store.save(held(1, "p", "s3cret"));
    const auto failure = store.flush();
    ASSERT_TRUE(failure.has_value());
    EXPECT_THAT(*failure, AllOf(HasSubstr(file.string()), HasSubstr("was not saved"),
                                HasSubstr("No such file or directory"), Not(HasSubstr("s3cret"))));
    EXPECT_EQ(store.flush(), failure) << "the last write's failure stays";
    EXPECT_EQ(store.load().warning, std::nullopt);

    std::filesystem::create_directory(directory / "missing");
    store.save(held(2, "p", "t"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_EQ(loaded().held.revision, 2U);
}

TEST_F(FileBindStoreTest, ADirectoryInItsPlaceIsAFailureThatLeavesNothingBehind) {
    std::filesystem::create_directory(file);
    FileBindStore store(file);
    store.save(held(1, "p", "t"));
    const auto failure = store.flush();
    ASSERT_TRUE(failure.has_value());
    EXPECT_THAT(*failure, HasSubstr("cannot replace it"));
    EXPECT_THAT(directory.names(), ElementsAre("binds.json"));
}

TEST_F(FileBindStoreTest, WhatEndedProcessesLeftIsRemovedWithTheFirstSave) {
    write(directory / ".binds.json.123-1.new", "half");
    write(directory / ".other.json.123-1.new", "not ours");
    write(directory / ".binds.json.bak", "not ours");
    FileBindStore store(file);
    EXPECT_EQ(store.load().held.revision, 0U);
    EXPECT_THAT(directory.names(), Contains(".binds.json.123-1.new"));
    store.save(held(1, "p", "t"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_THAT(directory.names(),
                UnorderedElementsAre("binds.json", ".binds.json.bak", ".other.json.123-1.new"));
}

TEST_F(FileBindStoreTest, WhatAnotherProcessIsStillWritingStays) {
    const auto other = directory / ".binds.json.123-1.new";
    write(other, "half");
    const int descriptor = ::open(other.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(::flock(descriptor, LOCK_EX | LOCK_NB), 0);
    {
        FileBindStore store(file);
        store.save(held(1, "p", "t"));
        EXPECT_EQ(store.flush(), std::nullopt);
    }
    EXPECT_TRUE(std::filesystem::exists(other));
    ::close(descriptor);
}

TEST_F(FileBindStoreTest, ANameThatIsTakenIsNotUsed) {
    // The names are counted by the process. The first ones are known; they are still to come where
    // this test has its process to itself, as under ctest.
    for (int number = 1; number <= 30; ++number)
        std::filesystem::create_symlink(directory / "elsewhere",
                                        directory / (".binds.json." + std::to_string(::getpid()) +
                                                     "-" + std::to_string(number) + ".new"));
    FileBindStore store(file);
    store.save(held(1, "p", "t"));
    EXPECT_EQ(store.flush(), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(directory / "elsewhere"));
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(file)));
    EXPECT_EQ(loaded().held.revision, 1U);
}

TEST_F(FileBindStoreTest, ARelativeFileIsKeptInTheCurrentDirectory) {
    const auto former = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    {
        FileBindStore store("binds.json");
        store.save(held(1, "p", "t"));
        EXPECT_EQ(store.flush(), std::nullopt);
    }
    std::filesystem::current_path(former);
    EXPECT_EQ(loaded().held.revision, 1U);
}

TEST_F(FileBindStoreTest, TwoStoresOfOneFileNeverMixTheirStates) {
    FileBindStore first(file);
    FileBindStore second(file);
    for (std::uint64_t revision = 1; revision <= 40; ++revision) {
        first.save(held(revision, "first", std::string(5000, '1')));
        second.save(held(revision, "second", std::string(9000, '2')));
        const auto result = loaded();
        EXPECT_EQ(result.warning, std::nullopt);
    }
    EXPECT_EQ(first.flush(), std::nullopt);
    EXPECT_EQ(second.flush(), std::nullopt);
    EXPECT_THAT(directory.names(), ElementsAre("binds.json"));
}

constexpr int bindsOfKilledProcess = 300;

/// A state that takes several writes of the system, and in which every token tells its revision.
HeldBinds largeState(std::uint64_t revision) {
    HeldBinds state;
    const std::string token = std::to_string(revision) + std::string(1000, 'x');
    for (int number = 0; number < bindsOfKilledProcess; ++number)
        state.binds.emplace_back(numbered("p", number), token);
    state.revision = revision;
    return state;
}

/// Saves one state after the other, and writes a byte to the descriptor for each.
[[noreturn]] void saveForEver(const std::filesystem::path& file, int told) {
    FileBindStore store(file);
    for (std::uint64_t revision = 2;; ++revision) {
        store.save(largeState(revision));
        if (store.flush() || ::write(told, "", 1) != 1) ::_exit(1);
    }
}

/// A process that saves without end, from the end of its first saves to its death.
class SavingProcess {
  public:
    SavingProcess(const std::filesystem::path& file, int saves) {
        int ends[2] = {-1, -1};
        if (::pipe(ends) != 0) return;
        process_ = ::fork();
        if (process_ == 0) saveForEver(file, ends[1]);
        ::close(ends[1]);
        char byte = 0;
        while (saves > 0 && ::read(ends[0], &byte, 1) == 1)
            --saves;
        saves_ = process_ > 0 && saves == 0;
        told_ = ends[0];
    }
    SavingProcess(const SavingProcess&) = delete;
    SavingProcess(SavingProcess&&) = delete;
    SavingProcess& operator=(const SavingProcess&) = delete;
    SavingProcess& operator=(SavingProcess&&) = delete;
    ~SavingProcess() {
        if (process_ <= 0) return;
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
        ::close(told_);
    }

    [[nodiscard]] bool saves() const { return saves_; }

  private:
    pid_t process_ = -1;
    int told_ = -1;
    bool saves_ = false;
};

TEST_F(FileBindStoreTest, AProcessKilledWhileItSavesLeavesOneStateAsAWhole) {
    for (std::size_t round = 0; round < TestSupport::roundsOf(25); ++round) {
        const int saves = 1 + static_cast<int>(round % 5);
        {
            const SavingProcess process(file, saves);
            ASSERT_TRUE(process.saves());
            TestSupport::spin(50'000U * static_cast<unsigned>(round % 25));
        }
        const auto result = loaded();
        ASSERT_EQ(result.warning, std::nullopt);
        ASSERT_GT(result.held.revision, static_cast<std::uint64_t>(saves))
            << "what was flushed is lost";
        ASSERT_EQ(result.held.binds, largeState(result.held.revision).binds);
    }
    FileBindStore(file).save(largeState(1'000'000));
    EXPECT_THAT(directory.names(), ElementsAre("binds.json")) << "half-written files are left";
}

}  // namespace
