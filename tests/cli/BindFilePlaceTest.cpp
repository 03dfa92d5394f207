#include <filesystem>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using TestSupport::CommandLine;
using TestSupport::contentOf;
using TestSupport::httpReply;
using TestSupport::RawConnection;
using TestSupport::RawServer;

unsigned modeOf(const fs::path& file) {
    return static_cast<unsigned>(fs::symlink_status(file).permissions());
}

class BindFilePlace : public CommandLine {
  protected:
    void SetUp() override { configureWatchList(server.url("")); }

    Result add() { return runConfigured({"watchlist", "add", "v1"}); }

    RawServer server{[](RawConnection& connection) {
        while (connection.readRequest())
            connection.send(httpReply(200, R"({"profileId":"p","token":"s3cret"})"));
    }};
};

TEST_F(BindFilePlace, EveryFolderThatIsMadeIsItsOwnersAlone) {
    const mode_t former = ::umask(0);
    const auto result = add();
    ::umask(former);
    ASSERT_EQ(result.code, 0) << result.errors;
    for (fs::path folder = bindFile().parent_path(); folder != directory.path();
         folder = folder.parent_path())
        EXPECT_EQ(modeOf(folder), 0700U) << folder;
    EXPECT_EQ(modeOf(bindFile()), 0600U);
}

TEST_F(BindFilePlace, BelowTheHomeTooEveryFolderThatIsMadeIsItsOwnersAlone) {
    environment["XDG_STATE_HOME"] = "";
    fs::create_directory(directory / "home");
    fs::permissions(directory / "home", fs::perms(0755));
    const mode_t former = ::umask(0);
    const auto result = add();
    ::umask(former);
    ASSERT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(modeOf(directory / "home"), 0755U) << "what was there stays as it is";
    std::size_t folders = 0;
    for (const auto& each : fs::recursive_directory_iterator(directory / "home")) {
        if (!each.is_directory()) continue;
        EXPECT_EQ(modeOf(each.path()), 0700U) << each.path();
        ++folders;
    }
    EXPECT_GE(folders, 5U);
}

TEST_F(BindFilePlace, FoldersOfTheProgramThatOthersCanUseAreClosed) {
    ASSERT_EQ(add().code, 0);
    for (fs::path folder = bindFile().parent_path(); folder != directory / "state";
         folder = folder.parent_path())
        fs::permissions(folder, fs::perms(0777));
    fs::permissions(directory / "state", fs::perms(0755));
    ASSERT_EQ(add().code, 0);
    for (fs::path folder = bindFile().parent_path(); folder != directory / "state";
         folder = folder.parent_path())
        EXPECT_EQ(modeOf(folder), 0700U) << folder;
    EXPECT_EQ(modeOf(directory / "state"), 0755U);
}

TEST_F(BindFilePlace, ALinkInThePlaceOfAFolderIsNotFollowed) {
    ASSERT_EQ(add().code, 0);
    const fs::path file = bindFile();
    const fs::path target = directory / "target";
    for (fs::path folder = file.parent_path(); folder != directory / "state";
         folder = folder.parent_path()) {
        SCOPED_TRACE(folder);
        fs::remove_all(directory / "state");
        fs::remove_all(target);
        fs::create_directories(folder.parent_path());
        fs::create_directory(target);
        fs::permissions(target, fs::perms(0755));
        fs::create_directory_symlink(target, folder);
        const auto result = add();
        EXPECT_EQ(result.code, 0) << result.errors;
        EXPECT_THAT(result.errors, AllOf(HasSubstr("warning"), HasSubstr(folder.string() + " "),
                                         HasSubstr("symbolic link")));
        EXPECT_EQ(modeOf(target), 0755U);
        EXPECT_TRUE(fs::is_empty(target));
    }
}

TEST_F(BindFilePlace, ALinkOfTheUsersAboveTheProgramsFoldersIsFollowed) {
    fs::create_directory(directory / "elsewhere");
    fs::create_directory_symlink(directory / "elsewhere", directory / "state");
    const auto result = add();
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.errors, IsEmpty());
    EXPECT_THAT(contentOf(bindFile()), HasSubstr("s3cret"));
}

TEST_F(BindFilePlace, AFolderThatCannotBeMadeIsAWarningAndTheCommandGoesOn) {
    TestSupport::write(directory / "state", "a file");
    const auto result = add();
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("warning"), HasSubstr("Not a directory")));
}

TEST_F(BindFilePlace, AFileThatOthersMayReadIsClosedWithAWord) {
    ASSERT_EQ(add().code, 0);
    fs::permissions(bindFile(), fs::perms(0644));
    const auto result = add();
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("warning"), HasSubstr("others")));
    EXPECT_EQ(modeOf(bindFile()), 0600U);
    EXPECT_THAT(add().errors, IsEmpty());
}

TEST_F(BindFilePlace, AFileThatOthersMayChangeIsReplacedWithAWord) {
    ASSERT_EQ(add().code, 0);
    const std::string planted = R"({"version":1,"revision":3,"selectedProfileID":"p",)"
                                R"("binds":[{"profileId":"p","token":"planted"}]})";
    TestSupport::write(bindFile(), planted);
    fs::permissions(bindFile(), fs::perms(0666));
    const auto result = add();
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("warning"), HasSubstr("not used")));
    EXPECT_EQ(modeOf(bindFile()), 0600U);
    EXPECT_THAT(contentOf(bindFile()), HasSubstr("s3cret"));
    EXPECT_THAT(add().errors, IsEmpty());
}

TEST_F(BindFilePlace, AFileOfAnotherUserIsNotUsed) {
    if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can give a file away";
    ASSERT_EQ(add().code, 0);
    ASSERT_EQ(::chown(bindFile().c_str(), 12345, 12345), 0);
    const auto result = add();
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("warning"), HasSubstr("another user")));
    EXPECT_THAT(add().errors, IsEmpty());
}

TEST_F(BindFilePlace, AFolderOfAnotherUserIsNotUsed) {
    if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can give a folder away";
    ASSERT_EQ(add().code, 0);
    ASSERT_EQ(::chown((directory / "state" / "kestrin-profile").c_str(), 12345, 12345), 0);
    const auto result = add();
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("warning"), HasSubstr("another user")));
}

TEST_F(BindFilePlace, WithoutAHomeNothingIsWrittenAndTheRemedyIsNamed) {
    const fs::path place = directory / "place";
    fs::create_directory(place);
    for (const std::string home : {"unset HOME", "HOME=", "HOME=.", "HOME=here"}) {
        const auto result = runShell("cd " + place.string() + "; " + home +
                                     "; export XDG_STATE_HOME=; $client watchlist add v1");
        EXPECT_EQ(result.code, 2) << home;
        EXPECT_THAT(result.errors, AllOf(HasSubstr("HOME"), HasSubstr("absolute"),
                                         HasSubstr("XDG_STATE_HOME"), HasSubstr("set ")));
        EXPECT_TRUE(fs::is_empty(place));
    }
    EXPECT_THAT(server.requests(), IsEmpty());
    const auto elsewhere = runShell("cd " + place.string() + "; HOME=; $client watchlist add v1");
    EXPECT_EQ(elsewhere.code, 0) << elsewhere.errors;
}

TEST_F(BindFilePlace, WithoutAHomeTheConfigurationHasToBeNamed) {
    environment["HOME"] = "";
    environment["XDG_CONFIG_HOME"] = "";
    const auto result = run({"config", "check"});
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("HOME"), HasSubstr("--config")));
}

TEST_F(BindFilePlace, EachProblemOfTheConfigurationNamesTheFile) {
    TestSupport::write(configuration, R"({"version":2,"parentProfileID":"","brand":1})");
    const auto text = runConfigured({"config", "check"});
    for (const std::string path : {"$.version", "$.parentProfileID", "$.brand"})
        EXPECT_THAT(text.output, HasSubstr(configuration + ": " + path));
    const auto json = runConfigured({"config", "check", "--json"});
    std::size_t files = 0;
    for (std::size_t at = json.output.find(configuration); at != std::string::npos;
         at = json.output.find(configuration, at + 1))
        ++files;
    EXPECT_EQ(files, 4U) << json.output;
}

}  // namespace
