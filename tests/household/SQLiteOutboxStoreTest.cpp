#include <barrier>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <random>
#include <support/Program.hpp>
#include <support/Rounds.hpp>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

#include <sqlite3.h>

#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::OutboxStore;
using KestrinHousehold::SQLiteOutboxStore;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
namespace fs = std::filesystem;

namespace {

OutboxEntry entry(std::int64_t number, const std::string& item = "item") {
    OutboxEntry made;
    made.number = number;
    made.write = progress(item + std::to_string(number), number);
    made.acceptedAt = Scheduler::WallTime(1'700'000'000s + std::chrono::milliseconds(number));
    return made;
}

std::vector<OutboxEntry> entries(std::int64_t count) {
    std::vector<OutboxEntry> made;
    for (std::int64_t number = 1; number <= count; ++number)
        made.push_back(entry(number));
    return made;
}

/// What stands beside the text of an entry.
std::int64_t checksumOf(std::int64_t number, std::string_view text) {
    auto sum = std::uint64_t{0xCBF29CE484222325} ^ static_cast<std::uint64_t>(number);
    for (const char character : text) {
        sum ^= static_cast<unsigned char>(character);
        sum *= std::uint64_t{0x100000001B3};
    }
    return static_cast<std::int64_t>(sum);
}

/// The least that an entry says.
constexpr std::string_view soundText =
    R"({"operation": "personalization-favorites-clear", "profile": "p", "acceptedAt": 1})";

class SQLiteOutboxStoreTest : public testing::Test {
  protected:
    TestSupport::TemporaryDirectory folder;
    fs::path file = folder / "outbox.db";

    /// What is found in the file now.
    [[nodiscard]] OutboxStore::Loaded found() const { return SQLiteOutboxStore(file, 0ms).load(); }

    void keep(const std::vector<OutboxEntry>& list) const {
        SQLiteOutboxStore store(file, 0ms);
        static_cast<void>(store.load());
        store.commit({list, {}});
    }

    void run(const char* sql) const {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, &error), SQLITE_OK) << error;
        sqlite3_close(database);
    }

    [[nodiscard]] std::optional<OutboxError> errorOfLoad() const {
        try {
            static_cast<void>(found());
            return std::nullopt;
        } catch (const OutboxError& error) {
            return error;
        }
    }
};

}  // namespace

TEST_F(SQLiteOutboxStoreTest, ReturnsEveryFieldOfWhatItKeeps) {
    auto full = entry(1);
    full.write.isComplete = true;
    full.write.itemID = "q\"\\\n\0 ü";
    full.clockDifference = -1500ms;
    full.ownUntil = full.acceptedAt + 2min;
    full.refusal = {full.acceptedAt + 1h, 422, "title", "detail"};
    auto many = entry(2);
    many.write = shows({UserProfileElement("a", Types::game), UserProfileElement("b")});
    keep({full, many, entry(3)});
    EXPECT_THAT(found().entries, ElementsAre(full, many, entry(3)));
    EXPECT_THAT(found().warnings, IsEmpty());
}

TEST_F(SQLiteOutboxStoreTest, ChangesAsAWhole) {
    keep(entries(3));
    SQLiteOutboxStore store(file, 0ms);
    static_cast<void>(store.load());
    store.commit({{entry(4), entry(2, "other")}, {1, 3, 99}});
    EXPECT_THAT(store.load().entries, ElementsAre(entry(2, "other"), entry(4)));
}

TEST_F(SQLiteOutboxStoreTest, KeepsItsLogShortSoThatNoCommitMakesItLonger) {
    SQLiteOutboxStore store(file, 0ms);
    static_cast<void>(store.load());
    for (const auto& one : entries(600))
        store.commit({{one}, {}});
    EXPECT_LE(fs::file_size(folder / "outbox.db-wal"), 1024 * 1024);
}

TEST_F(SQLiteOutboxStoreTest, IsReadableByItsOwnerAlone) {
    SQLiteOutboxStore store(file, 0ms);
    static_cast<void>(store.load());
    store.commit({entries(1), {}});
    for (const auto& name : folder.names())
        EXPECT_EQ(fs::status(folder / name).permissions(), fs::perms(0600)) << name;
    fs::permissions(file, fs::perms(0644));
    static_cast<void>(store.load());
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
}

TEST_F(SQLiteOutboxStoreTest, BelongsToOneStoreAtATime) {
    SQLiteOutboxStore first(file, 0ms);
    static_cast<void>(first.load());
    const auto error = errorOfLoad();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->value(), OutboxError::Case::storeUnavailable);
    EXPECT_THAT(error->what(), HasSubstr("another process"));
    first.commit({entries(1), {}});
    const pid_t child = ::fork();
    if (child == 0) {
        const auto other = errorOfLoad();
        ::_exit(other && other->value() == OutboxError::Case::storeUnavailable ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    first.commit({{entry(2)}, {}});
    EXPECT_THAT(first.load().entries, SizeIs(2));
}

TEST_F(SQLiteOutboxStoreTest, BelongsToEachOfThoseWhoOpenItAtOnceInTurn) {
    constexpr std::int64_t storesAtOnce = 4;
    for (std::size_t round = 0; round < TestSupport::roundsOf(10); ++round) {
        file = folder / (std::to_string(round) + ".db");
        for (const std::int64_t first : {1, 101}) {  // of a new file, and of one that is there
            std::barrier together(storesAtOnce);
            std::vector<std::thread> threads;
            for (std::int64_t number = first; number < first + storesAtOnce; ++number)
                threads.emplace_back([this, &together, number] {
                    SQLiteOutboxStore store(file, 24h);
                    together.arrive_and_wait();
                    EXPECT_NO_THROW(static_cast<void>(store.load()));
                    EXPECT_NO_THROW(store.commit({{entry(number)}, {}}));
                });
            for (auto& thread : threads)
                thread.join();
        }
        EXPECT_THAT(found().entries, SizeIs(2 * storesAtOnce));
        EXPECT_THAT(found().warnings, IsEmpty());
    }
}

TEST_F(SQLiteOutboxStoreTest, LeavesAnotherProgramsDatabaseAlone) {
    run("CREATE TABLE theirs (a); INSERT INTO theirs VALUES (1)");
    fs::permissions(file, fs::perms(0644));
    const auto before = TestSupport::contentOf(file);
    ASSERT_TRUE(errorOfLoad());
    EXPECT_EQ(TestSupport::contentOf(file), before);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
    EXPECT_EQ(errorOfLoad()->value(), OutboxError::Case::storeUnavailable);
    EXPECT_THAT(errorOfLoad()->what(), HasSubstr("another program"));
    run("SELECT * FROM theirs");
}

TEST_F(SQLiteOutboxStoreTest, SetsAFileOfALaterVersionAside) {
    keep(entries(2));
    run("PRAGMA user_version = 2");
    const auto loaded = found();
    EXPECT_THAT(loaded.entries, IsEmpty());
    EXPECT_THAT(loaded.warnings, ElementsAre(HasSubstr("version 2")));
    EXPECT_THAT(folder.names(), Contains("outbox.db.damaged-1"));
    EXPECT_THAT(found().warnings, IsEmpty());
}

TEST_F(SQLiteOutboxStoreTest, LeavesADatabaseAloneThatAnotherProgramHasOnlyMarked) {
    for (const char* const mark : {"PRAGMA user_version = 1", "PRAGMA application_id = 1"}) {
        run(mark);
        const auto before = TestSupport::contentOf(file);
        ASSERT_TRUE(errorOfLoad()) << mark;
        EXPECT_THAT(errorOfLoad()->what(), HasSubstr("another program"));
        EXPECT_EQ(TestSupport::contentOf(file), before);
        fs::remove(file);
    }
}

TEST_F(SQLiteOutboxStoreTest, SavesTheEntriesOfAFileWhoseHeadIsDamaged) {
    for (const char* const damage : {"PRAGMA application_id = 1", "PRAGMA user_version = 0"}) {
        keep(entries(3));
        run(damage);
        const auto loaded = found();
        EXPECT_THAT(loaded.entries, ElementsAre(entry(1), entry(2), entry(3))) << damage;
        EXPECT_THAT(loaded.warnings, ElementsAre(HasSubstr("its head is damaged")));
        EXPECT_THAT(found().warnings, IsEmpty());
    }
}

TEST_F(SQLiteOutboxStoreTest, SetsAFileAsideUnderANameThatNoLogHas) {
    keep(entries(1));
    TestSupport::write(folder / "outbox.db.damaged-1-wal", "the log of another one");
    run("PRAGMA user_version = 0");
    EXPECT_THAT(found().warnings, ElementsAre(HasSubstr("damaged-2")));
    EXPECT_EQ(TestSupport::contentOf(folder / "outbox.db.damaged-1-wal"), "the log of another one");
}

TEST_F(SQLiteOutboxStoreTest, SaysThatAnotherProgramHasItsFile) {
    keep(entries(1));
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &other), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(other, "PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE", nullptr,
                           nullptr, nullptr),
              SQLITE_OK);
    const auto error = errorOfLoad();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->value(), OutboxError::Case::storeUnavailable);
    EXPECT_THAT(error->what(), HasSubstr("another process"));
    sqlite3_close(other);
    EXPECT_THAT(found().entries, SizeIs(1));
}

TEST_F(SQLiteOutboxStoreTest, KeepsNothingBeforeItIsOpen) {
    SQLiteOutboxStore store(file, 0ms);
    try {
        store.commit({entries(1), {}});
        ADD_FAILURE() << "it was kept";
    } catch (const OutboxError& error) {
        EXPECT_EQ(error.value(), OutboxError::Case::storeUnavailable);
        EXPECT_THAT(error.what(), HasSubstr("it is not open"));
    }
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(SQLiteOutboxStoreTest, SetsAFileWithOtherTablesAside) {
    keep(entries(2));
    run("ALTER TABLE kestrin_outbox RENAME COLUMN entry TO other");
    EXPECT_THAT(found().warnings, SizeIs(1));
    EXPECT_THAT(folder.names(), Contains("outbox.db.damaged-1"));
    keep(entries(1));
    run("DROP TABLE kestrin_outbox");
    EXPECT_THAT(found().warnings, SizeIs(1));
    EXPECT_THAT(folder.names(), Contains("outbox.db.damaged-2"));
}

TEST_F(SQLiteOutboxStoreTest, LosesTheDamagedEntryAlone) {
    keep(entries(20));
    run("UPDATE kestrin_outbox SET entry = replace(entry, 'item7', 'itemX') WHERE number = 7");
    const auto loaded = found();
    EXPECT_THAT(loaded.entries, SizeIs(19));
    EXPECT_THAT(loaded.warnings, ElementsAre(AllOf(HasSubstr("19"), HasSubstr("damaged-1"))));
    EXPECT_THAT(found().entries, SizeIs(19));
    EXPECT_THAT(found().warnings, IsEmpty());
}

TEST_F(SQLiteOutboxStoreTest, LosesARowAloneThatIsNoEntryThoughItsChecksumIsRight) {
    for (const char* const text :
         {"no JSON", "{}", R"({"operation": "no-such", "acceptedAt": 1})",
          R"({"operation": "personalization-favorites-clear", "profile": "p"})",
          R"({"operation": "personalization-favorites-clear", "acceptedAt": 1})"}) {
        keep(entries(3));
        run(("UPDATE kestrin_outbox SET entry = '" + std::string(text) +
             "', checksum = " + std::to_string(checksumOf(2, text)) + " WHERE number = 2")
                .c_str());
        const auto loaded = found();
        EXPECT_THAT(loaded.entries, ElementsAre(entry(1), entry(3))) << text;
        EXPECT_THAT(loaded.warnings, SizeIs(1)) << text;
    }
    run(("INSERT INTO kestrin_outbox (number, entry, checksum) VALUES (4, '" +
         std::string(soundText) + "', " + std::to_string(checksumOf(4, soundText)) + ")")
            .c_str());
    EXPECT_THAT(found().entries, SizeIs(3)) << "the rows above lack one thing each";
}

TEST_F(SQLiteOutboxStoreTest, ReadsWhatItCanOfAFileWithADamagedPage) {
    keep(entries(500));
    auto content = TestSupport::contentOf(file);
    ASSERT_GT(content.size(), 10U * 4096);
    content.replace(std::size_t{5} * 4096, 4096, std::string(4096, '\x5A'));
    TestSupport::write(file, content);
    const auto loaded = found();
    EXPECT_THAT(loaded.warnings, SizeIs(1));
    EXPECT_GT(loaded.entries.size(), 400U);
    EXPECT_LT(loaded.entries.size(), 500U);
    for (const auto& one : loaded.entries)
        EXPECT_EQ(one, entry(one.number));
}

TEST_F(SQLiteOutboxStoreTest, SetsGarbageAside) {
    for (const std::string& garbage :
         {std::string("nonsense"), std::string(5000, 'x'), std::string(1, '\0'),
          std::string("SQLite format 3\0", 16), std::string(4096, '\0')}) {
        TestSupport::write(file, garbage);
        const auto loaded = found();
        EXPECT_THAT(loaded.entries, IsEmpty());
        EXPECT_THAT(loaded.warnings, SizeIs(1)) << garbage.substr(0, 20);
        keep(entries(1));
        EXPECT_THAT(found().entries, SizeIs(1));
    }
}

TEST_F(SQLiteOutboxStoreTest, SurvivesAFileThatIsCutAnywhere) {
    keep(entries(80));
    const auto whole = TestSupport::contentOf(file);
    for (std::size_t size = 0; size < whole.size(); size += 3001) {
        TestSupport::write(file, whole.substr(0, size));
        const auto loaded = found();
        if (size > 0) {
            EXPECT_THAT(loaded.warnings, SizeIs(1)) << size;
        }
        for (const auto& one : loaded.entries)
            EXPECT_EQ(one, entry(one.number));
        keep({entry(1000)});
        EXPECT_THAT(found().entries, Contains(entry(1000))) << size;
        fs::remove(file);
    }
}

TEST_F(SQLiteOutboxStoreTest, NeverTakesADamagedEntryForASoundOne) {
    keep(entries(60));
    const auto whole = TestSupport::contentOf(file);
    std::mt19937 random(1);
    for (std::size_t round = 0; round < TestSupport::roundsOf(15); ++round) {
        auto damaged = whole;
        for (int change = 0; change < 3; ++change)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        TestSupport::write(file, damaged);
        try {
            for (const auto& one : found().entries)
                EXPECT_EQ(one, entry(one.number)) << "round " << round;
        } catch (const OutboxError& error) {
            EXPECT_EQ(error.value(), OutboxError::Case::storeUnavailable);
        }
        for (const auto& name : folder.names())
            fs::remove(folder / name);
    }
}

TEST_F(SQLiteOutboxStoreTest, SetsALogWithoutItsFileAside) {
    TestSupport::write(file, "");
    TestSupport::write(folder / "outbox.db-wal", std::string(5000, 'x'));
    EXPECT_THAT(found().warnings, SizeIs(1));
    EXPECT_THAT(folder.names(), Contains("outbox.db.damaged-1-wal"));
}

TEST_F(SQLiteOutboxStoreTest, EndsAReplacementThatWasInterrupted) {
    keep(entries(3));
    fs::rename(file, folder / "outbox.db.new");
    TestSupport::write(folder / "outbox.db-wal", std::string(5000, 'x'));
    EXPECT_THAT(found().entries, SizeIs(3));
    EXPECT_THAT(folder.names(), Contains("outbox.db.damaged-1-wal"));
}

TEST_F(SQLiteOutboxStoreTest, SaysWhyItCannotBeOpened) {
    file = folder / "none" / "outbox.db";
    ASSERT_TRUE(errorOfLoad());
    EXPECT_THAT(errorOfLoad()->what(), HasSubstr(file.string()));
    file = folder.path();
    ASSERT_TRUE(errorOfLoad());
    EXPECT_EQ(errorOfLoad()->value(), OutboxError::Case::storeUnavailable);
}

TEST_F(SQLiteOutboxStoreTest, KeepsNothingOfAWriteForWhichTheDiskHasNoRoom) {
    // The limit of file sizes, in a process of its own.
    const pid_t child = ::fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        SQLiteOutboxStore store(file, 0ms);
        static_cast<void>(store.load());
        store.commit({entries(10), {}});
        const rlimit limit{40'000, 40'000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        std::int64_t kept = 10;
        bool isTold = false;
        while (!isTold && kept < 2000) {
            try {
                store.commit({{entry(kept + 1)}, {}});
                ++kept;
            } catch (const OutboxError& error) {
                isTold = error.value() == OutboxError::Case::notStored;
            }
        }
        // Killed here: no good end of SQLite's mends what was left.
        TestSupport::write(folder / "kept", std::to_string(isTold ? kept : -1));
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    const auto kept = std::stoll(TestSupport::contentOf(folder / "kept"));
    ASSERT_GE(kept, 10);
    const auto loaded = found();
    EXPECT_THAT(loaded.warnings, IsEmpty());
    EXPECT_EQ(static_cast<long long>(loaded.entries.size()), kept);
}
