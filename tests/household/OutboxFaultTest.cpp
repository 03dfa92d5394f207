// What an outbox does when the disk and the system do not do what they are asked. A program of its
// own, because it stands between the outbox and the system's calls.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <set>
#include <support/FailingCalls.hpp>
#include <support/Program.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::SQLiteOutboxStore;
using testing::AnyOf;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using TestSupport::allThatFollow;
using TestSupport::CallFault;
using TestSupport::FailingCalls;
using Call = TestSupport::SystemCall;
namespace fs = std::filesystem;

namespace {

struct NamedCall {
    Call call;
    const char* name;
};

constexpr std::array<NamedCall, 6> calls{{{Call::open, "open"},
                                          {Call::read, "read"},
                                          {Call::write, "write"},
                                          {Call::sync, "sync"},
                                          {Call::truncate, "truncate"},
                                          {Call::unlink, "unlink"}}};

std::string described(const char* name, const CallFault& fault) {
    return std::string(name) + " " + std::to_string(fault.first) + " to " +
           std::to_string(fault.last) + ": " + std::strerror(fault.error);
}

class OutboxFault : public testing::Test {
  protected:
    OutboxFault() { delivery->onSend(FakeDelivery::failing(networkIsAway())); }

    [[nodiscard]] std::shared_ptr<Outbox> opened() const {
        return std::make_shared<Outbox>(std::make_shared<SQLiteOutboxStore>(file, 0ms), delivery,
                                        scheduler);
    }

    /// Searches of distinct texts: none makes another one needless.
    static OutboxWrite search(const std::string& text) { return write(Op::addSearchHistory, text); }

    /// The texts of the entries in the file, in their order.
    [[nodiscard]] std::vector<std::string> kept() const {
        const auto loaded = SQLiteOutboxStore(file, 0ms).load();
        EXPECT_THAT(loaded.warnings, IsEmpty());
        std::vector<std::string> texts;
        for (const auto& entry : loaded.entries)
            texts.push_back(entry.write.itemID);
        return texts;
    }

    /// The file is what it was made.
    void expectSound() const {
        for (const auto& name : folder.names())
            EXPECT_THAT(name, testing::Not(HasSubstr("damaged")));
    }

    void startAnew() const {
        for (const auto& name : folder.names())
            fs::remove(folder / name);
    }

    /// Adds, and notes what was accepted.
    void add(Outbox& outbox, const std::string& text) {
        const Observed added(outbox.add(search(text)));
        if (added.completed()) return accepted.push_back(text);
        const auto error = added.error<OutboxError>();
        ASSERT_TRUE(error);
        EXPECT_THAT(error->value(),
                    AnyOf(OutboxError::Case::notStored, OutboxError::Case::storeUnavailable));
        EXPECT_THAT(error->what(), HasSubstr(file.string()));
        EXPECT_THAT(error->what(),
                    AnyOf(HasSubstr("I/O error"), HasSubstr("is full"), HasSubstr("unable to open"),
                          HasSubstr("Input/output"), HasSubstr("No space left")));
    }

    /// Makes calls fail while it opens an outbox, adds to it, or ends it.
    /// @param step  which of these
    /// @return whether a call has failed
    bool survives(int step, const CallFault& fault, const std::string& last) {
        startAnew();
        accepted.clear();
        {
            const auto before = opened();
            add(*before, "first");
            add(*before, "second");
        }
        std::optional<FailingCalls> failing;
        const auto at = [&](int here) {
            if (step == here) failing.emplace(fault, folder.path());
        };
        at(0);
        auto outbox = opened();
        const Observed opening(outbox->opening());
        if (opening.completed()) {
            EXPECT_THAT(opening.values().front().warnings, IsEmpty());
            at(1);
        } else {
            EXPECT_EQ(step, 0);
        }
        add(*outbox, "third");
        add(*outbox, last);
        if (failing) failing->end();
        add(*outbox, "after");
        EXPECT_THAT(accepted, testing::Contains("after"));
        at(2);
        outbox.reset();
        failing->end();
        EXPECT_THAT(kept(), ElementsAreArray(accepted));
        expectSound();
        return failing->hasFailed();
    }

    TestSupport::TemporaryDirectory folder;
    fs::path file = folder / "outbox.db";
    std::shared_ptr<FakeScheduler> scheduler = std::make_shared<FakeScheduler>();
    std::shared_ptr<FakeDelivery> delivery = std::make_shared<FakeDelivery>();
    std::vector<std::string> accepted;
};

TEST_F(OutboxFault, LosesNothingThatWasAcceptedWhateverCallFails) {
    std::set<std::pair<std::string, int>> reached;
    for (const auto& [call, name] : calls)
        for (const int error : {EIO, ENOSPC})
            for (const int step : {0, 1, 2})
                for (const int last : {0, allThatFollow})
                    for (int first = 1;; ++first) {
                        const CallFault fault{call, error, first, std::max(first, last)};
                        SCOPED_TRACE(described(name, fault) + " in step " + std::to_string(step));
                        if (!survives(step, fault, "last") || HasFatalFailure()) break;
                        reached.emplace(name, step);
                    }
    for (const auto& one : {std::pair("open", 0), std::pair("read", 0), std::pair("write", 0),
                            std::pair("write", 1), std::pair("write", 2), std::pair("sync", 1),
                            std::pair("sync", 2), std::pair("unlink", 2)})
        EXPECT_THAT(reached, testing::Contains(std::pair<std::string, int>(one)));
}

TEST_F(OutboxFault, LosesNothingIfTheLogCannotBeCopiedIntoTheFile) {
    // Five of them are more than the 200 pages at which SQLite does it.
    const auto longText = [](char name) { return std::string(180'000, name); };
    for (const CallFault& fault :
         {CallFault{Call::write, EIO, 260, 260}, CallFault{Call::write, EIO, 260},
          CallFault{Call::sync, EIO, 3, 3}, CallFault{Call::sync, EIO, 3}}) {
        startAnew();
        accepted.clear();
        auto outbox = opened();
        for (const char name : {'a', 'b', 'c'})
            add(*outbox, longText(name));
        FailingCalls failing(fault, folder.path());
        for (const char name : {'d', 'e'})
            add(*outbox, longText(name));
        failing.end();
        EXPECT_TRUE(failing.hasFailed());
        EXPECT_EQ(accepted.size(), 5);  // it was the copying that failed
        add(*outbox, "after");
        outbox.reset();
        EXPECT_EQ(accepted.back(), "after");
        EXPECT_TRUE(kept() == accepted);
    }
}

TEST_F(OutboxFault, StoresWhatTheSystemTakesInPieces) {
    for (const std::size_t most : {1U, 7U, 4095U}) {
        startAnew();
        accepted.clear();
        {
            const TestSupport::ShortWrites pieces(most, folder.path());
            const auto outbox = opened();
            add(*outbox, "a");
            add(*outbox, std::string(5000, 'b'));
        }
        EXPECT_THAT(accepted, testing::SizeIs(2));
        EXPECT_THAT(kept(), ElementsAreArray(accepted));
        expectSound();
    }
}

TEST_F(OutboxFault, TakesWhatWasSentOutOfTheFileOnceTheDiskWorksAgain) {
    for (const Call call : {Call::write, Call::sync}) {
        startAnew();
        delivery->hold();
        auto outbox = opened();
        EXPECT_TRUE(Observed(outbox->add(search("a"))).completed());
        ASSERT_TRUE(TestSupport::eventually([&] { return delivery->held() == 1; }));
        const Events events(*outbox);
        FailingCalls failing({call, EIO}, folder.path());
        delivery->answerNext();
        EXPECT_TRUE(TestSupport::eventually([&] {
            scheduler->advance(0s);
            return testing::Value(events.kinds(), testing::Contains(Kind::storeFailed));
        }));
        failing.end();
        EXPECT_TRUE(TestSupport::eventually([&] {
            scheduler->advance(5s);
            return Observed(outbox->settled()).endedAtOnce();
        }));
        outbox.reset();
        EXPECT_THAT(kept(), IsEmpty());
    }
}

/// What the file has of "old" and "new" if the process is killed after the calls had failed.
class KilledOutboxFault : public OutboxFault {
  protected:
    bool keepsNoneOfWhatFailed(const CallFault& fault) {
        startAnew();
        static_cast<void>(SQLiteOutboxStore(file, 0ms).load());
        const pid_t child = ::fork();
        if (child == 0) ::_exit(storeAndDie(fault));
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        const int code = WEXITSTATUS(status);
        EXPECT_NE(code, 3) << "the first one was not stored";
        const bool isTold = code != 0;
        const auto found = kept();
        if (isTold)
            EXPECT_THAT(found, testing::ElementsAre("old"));
        else
            EXPECT_THAT(found, testing::ElementsAre("old", "new"));
        expectSound();
        return isTold;
    }

  private:
    [[nodiscard]] int storeAndDie(const CallFault& fault) const {
        SQLiteOutboxStore store(file, 0ms);
        static_cast<void>(store.load());
        const auto entry = [](std::int64_t number, const char* text) {
            OutboxEntry made;
            made.number = number;
            made.write = search(text);
            return made;
        };
        try {
            store.commit({{entry(1, "old")}, {}});
        } catch (const OutboxError&) {
            return 3;
        }
        const FailingCalls failing(fault, folder.path());
        try {
            store.commit({{entry(2, "new")}, {}});
        } catch (const OutboxError&) {
            ::_exit(1);  // no good end of SQLite's mends what was left
        }
        ::_exit(0);
    }
};

TEST_F(KilledOutboxFault, NothingComesBackOfAWriteThatFailed) {
    std::size_t failures = 0;
    for (const int error : {EIO, ENOSPC}) {
        for (int first = 1; keepsNoneOfWhatFailed({Call::write, error, first}); ++first)
            ++failures;
        for (int first = 1; keepsNoneOfWhatFailed({Call::sync, error, first}); ++first)
            ++failures;
    }
    EXPECT_GE(failures, 4U);
}

/// The file is damaged, and calls fail while what can be read of it moves into a new one.
TEST_F(OutboxFault, LosesNothingThatCanBeReadWhileADamagedFileIsReplaced) {
    constexpr std::array<NamedCall, 7> replacing{{{Call::open, "open"},
                                                  {Call::read, "read"},
                                                  {Call::write, "write"},
                                                  {Call::sync, "sync"},
                                                  {Call::truncate, "truncate"},
                                                  {Call::rename, "rename"},
                                                  {Call::unlink, "unlink"}}};
    {
        const auto outbox = opened();
        for (int number = 10; number < 22; ++number)
            add(*outbox, "text number " + std::to_string(number) + std::string(200, '.'));
    }
    auto damaged = TestSupport::contentOf(file);
    const auto at = damaged.find("text number 20");
    ASSERT_NE(at, std::string::npos);
    damaged[at] = 'T';
    std::erase_if(accepted, [](const auto& text) { return text.starts_with("text number 20."); });
    ASSERT_EQ(accepted.size(), 11U);
    std::set<std::string> reached;
    for (const auto& [call, name] : replacing)
        for (const int error : {EIO, ENOSPC})
            for (const int last : {0, allThatFollow})
                for (int first = 1;; ++first) {
                    const CallFault fault{call, error, first, std::max(first, last)};
                    SCOPED_TRACE(described(name, fault));
                    startAnew();
                    TestSupport::write(file, damaged);
                    FailingCalls failing(fault, folder.path());
                    try {
                        static_cast<void>(SQLiteOutboxStore(file, 0ms).load());
                    } catch (const OutboxError& failure) {
                        EXPECT_EQ(failure.value(), OutboxError::Case::storeUnavailable);
                    }
                    failing.end();
                    std::vector<std::string> texts;
                    for (const auto& entry : SQLiteOutboxStore(file, 0ms).load().entries)
                        texts.push_back(entry.write.itemID);
                    ASSERT_THAT(texts, ElementsAreArray(accepted));
                    if (!failing.hasFailed()) break;
                    reached.insert(name);
                }
    for (const char* const name : {"open", "read", "write", "sync", "rename", "unlink"})
        EXPECT_THAT(reached, testing::Contains(name));
}

}  // namespace
