// What the bind store does when the disk and the system do not do what they are asked. A program of
// its own, because it stands between the store and the system's calls.

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/FileBindStore.hpp>

#include "Support.hpp"
#include "support/Program.hpp"

namespace {

/// The system's calls that can be made to fail.
enum class Call { open, read, write, fsync, rename, flock, fstat, fchmod, unlink };

struct NamedCall {
    Call call;
    const char* name;
};

constexpr std::array<NamedCall, 9> calls{{{Call::open, "open"},
                                          {Call::read, "read"},
                                          {Call::write, "write"},
                                          {Call::fsync, "fsync"},
                                          {Call::rename, "rename"},
                                          {Call::flock, "flock"},
                                          {Call::fstat, "fstat"},
                                          {Call::fchmod, "fchmod"},
                                          {Call::unlink, "unlink"}}};

constexpr int none = -1;

/// What fails; set while the store does nothing.
struct Fault {
    std::atomic<int> call{none};
    std::atomic<int> error{0};
    std::atomic<int> first{1};  ///< the first one of the calls that fails, from 1
    std::atomic<int> last{1};
    std::atomic<int> count{0};  ///< how many were made
    std::atomic<std::size_t> mostBytes{std::numeric_limits<std::size_t>::max()};  ///< of a write
};
Fault fault;

/// Whether a call fails, with `errno` set.
bool fails(Call call) {
    if (fault.call != static_cast<int>(call)) return false;
    const int number = ++fault.count;
    if (number < fault.first || number > fault.last) return false;
    errno = fault.error;
    return true;
}

/// The system's own function.
template <class Function>
Function* real(const char* name) {
    void* const found = ::dlsym(RTLD_NEXT, name);
    Function* function = nullptr;
    std::memcpy(&function, &found, sizeof function);
    return function;
}

}  // namespace

// In the place of the system's functions.
extern "C" {
int open(const char* path, int flags, ...) {  // NOLINT(cert-dcl50-cpp): as it is declared
    std::va_list more;
    va_start(more, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0U;
    va_end(more);
    return fails(Call::open) ? -1 : real<int(const char*, int, ...)>("open")(path, flags, mode);
}
ssize_t read(int file, void* to, size_t size) {
    return fails(Call::read) ? -1 : real<ssize_t(int, void*, size_t)>("read")(file, to, size);
}
ssize_t write(int file, const void* from, size_t size) {
    if (fails(Call::write)) return -1;
    return real<ssize_t(int, const void*, size_t)>("write")(
        file, from, std::min<std::size_t>(size, fault.mostBytes));
}
int fsync(int file) {
    return fails(Call::fsync) ? -1 : real<int(int)>("fsync")(file);
}
int rename(const char* from, const char* to) noexcept {
    return fails(Call::rename) ? -1 : real<int(const char*, const char*)>("rename")(from, to);
}
int flock(int file, int operation) noexcept {
    return fails(Call::flock) ? -1 : real<int(int, int)>("flock")(file, operation);
}
int fstat(int file, struct stat* status) noexcept {
    return fails(Call::fstat) ? -1 : real<int(int, struct stat*)>("fstat")(file, status);
}
int fchmod(int file, mode_t mode) noexcept {
    return fails(Call::fchmod) ? -1 : real<int(int, mode_t)>("fchmod")(file, mode);
}
int unlink(const char* path) noexcept {
    return fails(Call::unlink) ? -1 : real<int(const char*)>("unlink")(path);
}
}

namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::FileBindStore;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using TestSupport::held;

class BindStoreFault : public testing::Test {
  protected:
    ~BindStoreFault() override { repair(); }

    /// From now on these calls fail.
    static void breakCalls(Call call, int error, int first, int last) {
        fault.count = 0;
        fault.error = error;
        fault.first = first;
        fault.last = last;
        fault.call = static_cast<int>(call);
    }

    /// @return how many of the calls that could fail were made
    static int repair() {
        fault.call = none;
        return fault.count;
    }

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
        breakCalls(call.call, error, first, last);
        store.save(held(2, "p", "s3cret-new"));
        const auto failure = store.flush();
        const bool hasFailed = repair() >= first;

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
        return hasFailed;
    }

    TestSupport::TemporaryDirectory directory;
    std::filesystem::path file = directory / "binds.json";
};

TEST_F(BindStoreFault, NoFaultLeavesHalfAStateAndEachIsSaid) {
    std::vector<std::string_view> reached;
    for (const NamedCall& call : calls)
        for (const int error : {ENOSPC, EIO, EDQUOT, EROFS, EACCES})
            for (const int last : {0, std::numeric_limits<int>::max()})
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
            breakCalls(call.call, EINTR, first, first + 2);
            const auto before = loaded();
            FileBindStore store(file);
            store.save(held(2, "p", "s3cret-new"));
            EXPECT_EQ(store.flush(), std::nullopt);
            const auto after = loaded();
            made = repair();
            EXPECT_THAT(before.held.binds, ElementsAre(AnonymousBind("p", "s3cret-old")));
            EXPECT_THAT(after.held.binds, ElementsAre(AnonymousBind("p", "s3cret-new")));
            EXPECT_THAT(directory.names(), ElementsAre("binds.json"));
        }
}

TEST_F(BindStoreFault, WhatIsWrittenInPiecesIsWhole) {
    for (const std::size_t most : {1U, 7U, 4096U}) {
        FileBindStore store(file);
        fault.mostBytes = most;
        store.save(held(2, "p", std::string(10'000, 'x')));
        EXPECT_EQ(store.flush(), std::nullopt);
        fault.mostBytes = std::numeric_limits<std::size_t>::max();
        EXPECT_THAT(loaded().held.binds, ElementsAre(AnonymousBind("p", std::string(10'000, 'x'))));
    }
}

TEST_F(BindStoreFault, ADiskThatFillsUpWithinAStateKeepsTheOldOne) {
    for (int first = 1; first < 40; ++first) {
        keepOld();
        FileBindStore store(file);
        fault.mostBytes = 100;
        breakCalls(Call::write, ENOSPC, first, std::numeric_limits<int>::max());
        store.save(held(2, "p", std::string(5'000, 'x')));
        const auto failure = store.flush();
        repair();
        fault.mostBytes = std::numeric_limits<std::size_t>::max();
        ASSERT_TRUE(failure);
        EXPECT_THAT(*failure, HasSubstr("No space left on device"));
        EXPECT_THAT(loaded().held.binds, ElementsAre(AnonymousBind("p", "s3cret-old")));
        EXPECT_THAT(directory.names(), ElementsAre("binds.json"));
    }
}

TEST_F(BindStoreFault, AFileThatCannotBeReadIsAWarningAndStays) {
    for (const Call call : {Call::open, Call::fstat, Call::read}) {
        keepOld();
        breakCalls(call, EIO, 1, std::numeric_limits<int>::max());
        const auto result = loaded();
        repair();
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
    breakCalls(Call::fchmod, EROFS, 1, 1);
    const auto result = loaded();
    repair();
    EXPECT_THAT(result.held.binds, ElementsAre(AnonymousBind("p", "s3cret-old")));
    ASSERT_TRUE(result.warning);
    EXPECT_THAT(*result.warning, AllOf(HasSubstr("others"), HasSubstr("Read-only file system")));
}

}  // namespace
