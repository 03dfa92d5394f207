// What the bind store does when the disk and the system do not do what they are asked. A program of
// its own, because it stands between the store and the system's calls.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/FileBindStore.hpp>

#include "Support.hpp"
#include "support/FailingCalls.hpp"
#include "support/Program.hpp"

namespace {

using Call = TestSupport::SystemCall;

struct NamedCall {
    Call call;
    const char* name;
};

constexpr std::array<NamedCall, 9> calls{{{Call::open, "open"},
                                          {Call::read, "read"},
                                          {Call::write, "write"},
                                          {Call::sync, "fsync"},
                                          {Call::rename, "rename"},
                                          {Call::flock, "flock"},
                                          {Call::fstat, "fstat"},
                                          {Call::fchmod, "fchmod"},
                                          {Call::unlink, "unlink"}}};

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::FileBindStore;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::allThatFollow;
using TestSupport::FailingCalls;
using TestSupport::held;

class BindStoreFault : public testing::Test {
  protected:
    void keepOld() {
        FileBindStore store(file);
        store.save(held(1, "p", "s3cret-old"));
        ASSERT_EQ(store.flush(), std::nullopt);
    }

    [[nodiscard]] FileBindStore::Loaded loaded() const { return FileBindStore(file).load(); }

    /// Saves while the calls from this one to that one fail.
    /// @return whether one of them did
    bool saveWith(const NamedCall& call, int error, int first, int last) {
        SCOPED_TRACE(std::string(call.name) + " " + std::to_string(first) + " to " +
                     std::to_string(last) + ": " + std::strerror(error));
        keepOld();
        FileBindStore store(file);
        FailingCalls failing({call.call, error, first, last});
        store.save(held(2, "p", "s3cret-new"));
        const auto failure = store.flush();
        failing.end();

        const auto result = loaded();
        EXPECT_EQ(result.warning, std::nullopt);
        const std::string token = result.held.binds.empty() ? "" : result.held.binds[0].token;
        EXPECT_THAT(token, testing::AnyOf("s3cret-old", "s3cret-new"));
        if (failure) {
            EXPECT_THAT(*failure, AllOf(HasSubstr(file.string()), HasSubstr(std::strerror(error)),
                                        HasSubstr("was not saved"), Not(HasSubstr("s3cret"))));
        } else {
            EXPECT_EQ(token, "s3cret-new");
        }
        if (call.call != Call::unlink) {
            EXPECT_THAT(directory.names(), ElementsAre("binds.json"));
        }

        store.save(held(3, "p", "s3cret-next"));
        EXPECT_EQ(store.flush(), std::nullopt);
        EXPECT_THAT(loaded().held.binds, ElementsAre(AnonymousBind("p", "s3cret-next")));
        return failing.hasFailed();
    }

    TestSupport::TemporaryDirectory directory;
    std::filesystem::path file = directory / "binds.json";
};

TEST_F(BindStoreFault, NoFaultLeavesHalfAStateAndEachIsSaid) {
    std::vector<std::string_view> reached;
    for (const NamedCall& call : calls)
        for (const int error : {ENOSPC, EIO, EDQUOT, EROFS, EACCES})
            for (const int last : {0, allThatFollow})
                for (int first = 1; saveWith(call, error, first, std::max(first, last)); ++first)
                    reached.emplace_back(call.name);
    for (const auto* const name : {"open", "write", "fsync", "rename", "flock", "fstat"})
        EXPECT_THAT(reached, testing::Contains(name));
}

TEST_F(BindStoreFault, WhatIsInterruptedIsDoneAgain) {
    for (const NamedCall& call : calls)
        for (int first = 1, made = 1; first <= made; ++first) {
            SCOPED_TRACE(std::string(call.name) + ' ' + std::to_string(first));
            keepOld();
            ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
            if (call.call == Call::fstat || call.call == Call::unlink) continue;  // never are
            FailingCalls failing({call.call, EINTR, first, first + 2});
            const auto before = loaded();
            FileBindStore store(file);
            store.save(held(2, "p", "s3cret-new"));
            EXPECT_EQ(store.flush(), std::nullopt);
            const auto after = loaded();
            failing.end();
            made = failing.count();
            EXPECT_THAT(before.held.binds, ElementsAre(AnonymousBind("p", "s3cret-old")));
            EXPECT_THAT(after.held.binds, ElementsAre(AnonymousBind("p", "s3cret-new")));
            EXPECT_THAT(directory.names(), ElementsAre("binds.json"));
        }
}

TEST_F(BindStoreFault, WhatIsWrittenInPiecesIsWhole) {
    for (const std::size_t most : {1U, 7U, 4096U}) {
        FileBindStore store(file);
        {
            const TestSupport::ShortWrites pieces(most);
            store.save(held(2, "p", std::string(10'000, 'x')));
            EXPECT_EQ(store.flush(), std::nullopt);
        }
        EXPECT_THAT(loaded().held.binds, ElementsAre(AnonymousBind("p", std::string(10'000, 'x'))));
    }
}

TEST_F(BindStoreFault, ADiskThatFillsUpWithinAStateKeepsTheOldOne) {
    for (int first = 1; first < 40; ++first) {
        keepOld();
        FileBindStore store(file);
        std::optional<std::string> failure;
        {
            const TestSupport::ShortWrites pieces(100);
            const FailingCalls failing({Call::write, ENOSPC, first});
            store.save(held(2, "p", std::string(5'000, 'x')));
            failure = store.flush();
        }
        ASSERT_TRUE(failure);
        EXPECT_THAT(*failure, HasSubstr("No space left on device"));
        EXPECT_THAT(loaded().held.binds, ElementsAre(AnonymousBind("p", "s3cret-old")));
        EXPECT_THAT(directory.names(), ElementsAre("binds.json"));
    }
}

TEST_F(BindStoreFault, AFileThatCannotBeReadIsAWarningAndStays) {
    for (const Call call : {Call::open, Call::fstat, Call::read}) {
        keepOld();
        FailingCalls failing({call, EIO});
        const auto result = loaded();
        failing.end();
        EXPECT_THAT(result.held.binds, IsEmpty());
        ASSERT_TRUE(result.warning);
        EXPECT_THAT(*result.warning,
                    AllOf(HasSubstr(file.string()), HasSubstr("Input/output error")));
        EXPECT_THAT(loaded().held.binds, ElementsAre(AnonymousBind("p", "s3cret-old")));
    }
}

TEST_F(BindStoreFault, AFileThatCannotBeClosedToOthersIsLoadedAndSaysSo) {
    keepOld();
    ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
    FailingCalls failing({Call::fchmod, EROFS, 1, 1});
    const auto result = loaded();
    failing.end();
    EXPECT_THAT(result.held.binds, ElementsAre(AnonymousBind("p", "s3cret-old")));
    ASSERT_TRUE(result.warning);
    EXPECT_THAT(*result.warning, AllOf(HasSubstr("others"), HasSubstr("Read-only file system")));
}

}  // namespace
