// The database file: created, migrated, refused.
#include <fstream>
#include <string>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

class DatabaseTest : public testing::Test {
  protected:
    std::string refusal() const {
        try {
            prepareDatabase(file);
            return "accepted";
        } catch (const StartError& error) {
            return error.what();
        }
    }

    void execute(const std::string& sql) const {
        SQLite::Database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec(sql);
    }

    std::int64_t number(const std::string& sql) const {
        SQLite::Database database(file.string());
        return database.execAndGet(sql).getInt64();
    }

    TestSupport::TemporaryDirectory folder;
    std::filesystem::path file = folder / "profiles.sqlite";
};

TEST_F(DatabaseTest, aNewFileIsCreatedForItsOwnerOnlyWithItsFolders) {
    file = folder / "some/new/folder/profiles.sqlite";
    EXPECT_EQ(refusal(), "accepted");
    struct stat status{};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(number("PRAGMA user_version"), currentSchemaVersion());
}

TEST_F(DatabaseTest, connectionsFlushEveryCommitAndCheckReferences) {
    prepareDatabase(file);
    Connection connection(file, Connection::Mode::readWrite);
    EXPECT_EQ(connection.database().execAndGet("PRAGMA journal_mode").getString(), "wal");
    EXPECT_EQ(connection.database().execAndGet("PRAGMA synchronous").getInt(), 2);
    EXPECT_EQ(connection.database().execAndGet("PRAGMA foreign_keys").getInt(), 1);
    EXPECT_GE(connection.database().execAndGet("PRAGMA busy_timeout").getInt(), 1000);
}

TEST_F(DatabaseTest, aConnectionForReadingCannotWrite) {
    prepareDatabase(file);
    Connection connection(file, Connection::Mode::readOnly);
    EXPECT_THROW(Query(connection, "DELETE FROM settings").run(), SQLite::Exception);
}

TEST_F(DatabaseTest, namesThatWereComparedByAnOlderRuleAreComparedByThisOne) {
    prepareDatabase(file);
    execute(
        "INSERT INTO households (household, name, secret) VALUES (1, 'household', 'letters');"
        "INSERT INTO profiles (household, id, username, name_key, is_default, is_parent) VALUES"
        " (1, 'parent', 'Parent', 'parent', 1, 1),"
        " (1, 'a', 'Ștefan', 'Ștefan', 0, 0),"
        " (1, 'b', 'Țara', 'Țara', 0, 0),"
        " (1, 'c', 'țara', 'țara', 0, 0)");
    ServiceSettings settings;
    settings.database = file;
    settings.http.port = 0;
    settings.http.isQuiet = true;
    for (int start = 0; start < 2; ++start) {
        const Service service(settings);
        HouseholdClient client(service.baseURL(), "letters");
        const Caller parent = client.bind("parent");
        const auto create = [&](const std::string& name) {
            return outcomeOf(client.call(parent, "POST", "/v1/profiles?profile=parent&v=1",
                                         R"({"username":")" + name + R"(","default":false})"));
        };
        EXPECT_EQ(create("șTEFAN"), "422 invalid-name");
        EXPECT_EQ(create("țARA"), "422 invalid-name");
        EXPECT_EQ(client.call(parent, "GET", "/v1/profiles?profile=parent&v=1")
                      .json()
                      .at("data")
                      .as_array()
                      .size(),
                  4U)
            << "who shares a name stays";
    }
}

TEST_F(DatabaseTest, anOlderSchemaIsMigratedAndItsDataStays) {
    prepareDatabase(file, 1);
    ASSERT_EQ(number("PRAGMA user_version"), 1);
    ASSERT_EQ(number("SELECT count(*) FROM sqlite_schema WHERE name = 'entries'"), 0);
    execute(
        "INSERT INTO households (household, name, secret) VALUES (1, 'household', 'old secret');"
        "INSERT INTO profiles (household, id, username, name_key, is_default, is_parent)"
        " VALUES (1, 'old-parent', 'Old', 'old', 1, 1)");

    ServiceSettings settings;
    settings.database = file;
    settings.http.port = 0;
    settings.http.isQuiet = true;
    const Service service(settings);
    HouseholdClient client(service.baseURL(), "old secret");
    const Caller parent = client.bind("old-parent");
    EXPECT_EQ(outcomeOf(client.call(parent, "PUT",
                                    "/v1/favorites/show?show=s&brand=b&profile=old-parent&v=1")),
              "204");
    EXPECT_EQ(client.idsOf(parent, "/v1/favorites?brand=b&profile=old-parent&v=1"), "s");
    EXPECT_EQ(number("PRAGMA user_version"), currentSchemaVersion());
}

TEST_F(DatabaseTest, theListsOfAnOlderSchemaStay) {
    prepareDatabase(file, 2);
    execute(
        "INSERT INTO households (household, name, secret) VALUES (1, 'household', 'old secret');"
        "INSERT INTO profiles (household, id, username, name_key, is_default, is_parent)"
        " VALUES (1, 'parent', 'Old', 'old', 1, 1);"
        "INSERT INTO entries (profile, list, brand, position, id, added)"
        " VALUES (1, 'favorites', 'b', 1, 'older', 0), (1, 'favorites', 'b', 2, 'newer', 0)");
    ServiceSettings settings;
    settings.database = file;
    settings.http.port = 0;
    settings.http.isQuiet = true;
    const Service service(settings);
    HouseholdClient client(service.baseURL(), "old secret");
    EXPECT_EQ(client.idsOf(client.bind("parent"), "/v1/favorites?brand=b&profile=parent&v=1"),
              "newer older");
    EXPECT_EQ(number("PRAGMA user_version"), currentSchemaVersion());
}

TEST_F(DatabaseTest, listsAreTrimmedAtTheStartIfTheLimitIsLower) {
    TestService service;
    const std::string list = "/v1/favorites?brand=b&profile=parent&v=1";
    {
        auto client = service.client();
        const Caller parent = client.bind("parent");
        for (const char* show : {"a", "b", "c"})
            client.call(
                parent, "PUT",
                std::string("/v1/favorites/show?show=") + show + "&brand=b&profile=parent&v=1");
    }
    const auto idsWithLimit = [&](std::size_t size) {
        service.restart([&](ServiceSettings& settings) { settings.limits.maxListSize = size; });
        auto client = service.client();
        return client.idsOf(client.bind("parent"), list);
    };
    EXPECT_EQ(idsWithLimit(2), "c b");
    EXPECT_EQ(idsWithLimit(500), "c b") << "what was dropped is gone";
    EXPECT_EQ(idsWithLimit(1), "c");
}

TEST_F(DatabaseTest, aNewerSchemaIsRefusedUntouched) {
    prepareDatabase(file);
    execute("PRAGMA user_version = 99");
    EXPECT_EQ(refusal(), "'" + file.string() +
                             "' has schema version 99, this program knows versions up to 3. Use the"
                             " newer program, or name another file with --database.");
    EXPECT_EQ(number("PRAGMA user_version"), 99);
}

TEST_F(DatabaseTest, anotherProgramsDatabaseIsRefusedUntouched) {
    execute("CREATE TABLE notes (text TEXT)");
    EXPECT_EQ(refusal(), "'" + file.string() +
                             "' is a database of another program. Name another file with"
                             " --database.");
    EXPECT_EQ(number("SELECT count(*) FROM sqlite_schema"), 1);
}

TEST_F(DatabaseTest, aFileThatIsNoDatabaseIsRefusedUntouched) {
    const std::string text(5000, 'x');
    std::ofstream(file) << text;
    EXPECT_EQ(refusal().find("cannot open the database '" + file.string() + "'"), 0U) << refusal();
    EXPECT_EQ(TestSupport::contentOf(file), text);
}

TEST_F(DatabaseTest, anImpossiblePathIsAClearError) {
    std::ofstream(folder / "plain").put('x');
    file = folder / "plain/profiles.sqlite";
    const std::string message = refusal();
    EXPECT_EQ(message.find("cannot open the database '" + file.string() + "'"), 0U) << message;
    EXPECT_NE(message.find("--database"), std::string::npos);
}

TEST_F(DatabaseTest, householdsAreCreatedOnceWithTheirOwnSecrets) {
    ServiceSettings settings;
    settings.database = file;
    const Household first = prepareHousehold(settings);
    EXPECT_EQ(first.parentProfileID, "parent");
    EXPECT_EQ(first.secret.size(), 64U);
    EXPECT_EQ(prepareHousehold(settings).secret, first.secret);
    settings.household = "second";
    settings.parentProfileID = "grandma";
    const Household second = prepareHousehold(settings);
    EXPECT_NE(second.secret, first.secret);
    EXPECT_EQ(second.parentProfileID, "grandma");
}

TEST_F(DatabaseTest, aHouseholdKeepsItsParent) {
    ServiceSettings settings;
    settings.database = file;
    static_cast<void>(prepareHousehold(settings));
    settings.parentProfileID = "parent";
    EXPECT_EQ(prepareHousehold(settings).parentProfileID, "parent");
    settings.parentProfileID = "somebody";
    EXPECT_THROW(static_cast<void>(prepareHousehold(settings)), StartError);
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
