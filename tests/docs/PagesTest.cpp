// The pages for readers, where they state what the repository knows itself.

#include <algorithm>
#include <array>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "support/Program.hpp"

namespace {

namespace fs = std::filesystem;

using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using TestSupport::contentOf;

const fs::path root = KESTRIN_SOURCE;

struct Page {
    fs::path file;
    std::string text;
};

/// The pages at the top and every page below the folders that have some.
std::vector<Page> pages() {
    std::vector<fs::path> files{root / "README.md", root / "CHANGELOG.md", root / "CONTRIBUTING.md",
                                root / "SECURITY.md"};
    for (const char* const folder : {"docs", "compat", "examples"})
        for (const auto& entry : fs::recursive_directory_iterator(root / folder))
            if (entry.path().extension() == ".md") files.push_back(entry.path());
    std::vector<Page> all;
    for (const auto& file : files)
        all.push_back({file, contentOf(file)});
    return all;
}

/// Everything that the first group of an expression matches.
std::set<std::string> found(const std::string& text, const std::string& expression) {
    std::set<std::string> all;
    const std::regex pattern(expression);
    for (std::sregex_iterator each(text.begin(), text.end(), pattern), end; each != end; ++each)
        all.insert((*each)[1]);
    return all;
}

/// The same on all pages, each with the page that it stands on.
std::vector<std::pair<fs::path, std::string>> onPages(const std::string& expression) {
    std::vector<std::pair<fs::path, std::string>> all;
    for (const auto& page : pages())
        for (const auto& each : found(page.text, expression))
            all.emplace_back(page.file, each);
    return all;
}

/// What the build description says, all of it.
std::string buildFiles() {
    std::string all = contentOf(root / "CMakeLists.txt");
    for (const char* const folder : {"cmake", "libs", "apps", "bindings"})
        for (const auto& entry : fs::recursive_directory_iterator(root / folder))
            if (entry.path().extension() == ".cmake" || entry.path().filename() == "CMakeLists.txt")
                all += contentOf(entry.path());
    return all;
}

TEST(Pages, LinkToFilesThatAreThere) {
    const auto links = onPages(R"(\]\(([^)#: ]+)(?:#[^) ]*)?\))");
    EXPECT_THAT(links, SizeIs(testing::Gt(5U)));
    for (const auto& [page, target] : links)
        EXPECT_TRUE(fs::exists(page.parent_path() / target)) << page << " links to " << target;
}

TEST(Pages, NameDefencesAndTestsThatAreThere) {
    std::set<std::string> files;
    for (const char* const folder : {"apps", "libs", "tests"})
        for (const auto& entry : fs::recursive_directory_iterator(root / folder))
            files.insert(entry.path().filename().string());
    const std::string page = contentOf(root / "docs/reliability.md");
    const auto sources = found(page, "`([A-Za-z0-9]+\\.[ch]pp)`");
    EXPECT_THAT(sources, SizeIs(testing::Gt(5U)));
    for (const auto& source : sources)
        EXPECT_TRUE(files.contains(source)) << source;
    const auto tests = found(page, "`([A-Za-z0-9]+Test)`");
    EXPECT_THAT(tests, SizeIs(testing::Gt(5U)));
    for (const auto& test : tests)
        EXPECT_TRUE(files.contains(test + ".cpp")) << test;
}

TEST(Pages, NameFilesThatAreThere) {
    const auto names = onPages(
        "`((?:apps|bench|bindings|cmake|compat|docs|examples|libs|tests|HalvardMorrow|HalvardSling|"
        "KestrinConfigManager|KestrinProfile|rxcpp)/[A-Za-z0-9_./-]*)`");
    EXPECT_THAT(names, SizeIs(testing::Gt(5U)));
    for (const auto& [page, name] : names)
        EXPECT_TRUE(std::ranges::any_of(
            std::array{root, root / "libs", root / "compat/rxcpp", page.parent_path()},
            [&](const fs::path& folder) { return fs::exists(folder / name); }))
            << page << " names " << name;
}

TEST(Pages, IncludeHeadersThatAreThere) {
    const auto headers = onPages("#include <([A-Za-z]+/[^>]*)>");
    EXPECT_THAT(headers, Not(IsEmpty()));
    for (const auto& [page, header] : headers)
        EXPECT_TRUE(fs::exists(root / "libs" / header) ||
                    fs::exists(root / "compat/rxcpp" / header))
            << page << " includes " << header;
}

TEST(Pages, NameCommandsOfDevThatItsHelpLists) {
    TestSupport::Program dev({root / "dev", "help"});
    ASSERT_EQ(dev.wait(), 0) << dev.errors();
    const auto commands = found(dev.output(), "(?:^|\n)\\./dev ([a-z0-9]+)");
    EXPECT_THAT(commands, SizeIs(testing::Gt(5U)));
    for (const auto& [page, command] : onPages("\\./dev ([a-z0-9]+)"))
        EXPECT_TRUE(commands.contains(command) || command == "help")
            << page << " names ./dev " << command;
}

TEST(Pages, DevHelpListsWhatItDoes) {
    TestSupport::Program dev({root / "dev", "help"});
    ASSERT_EQ(dev.wait(), 0) << dev.errors();
    const std::string script = contentOf(root / "dev");
    auto does =
        found(script.substr(script.find("case \"${1")), R"((?:\n|\| )\s*([a-z0-9]+)(?= \||\)))");
    does.erase("help");
    EXPECT_EQ(found(dev.output(), "(?:^|\n)\\./dev ([a-z0-9]+)"), does);
}

TEST(Pages, ShowEveryPresetThatTestsAndNoOther) {
    const std::string presets = contentOf(root / "CMakePresets.json");
    auto tested =
        found(presets.substr(presets.find("\"testPresets\"")), R"re("name": "([a-z0-9-]+)")re");
    tested.erase("base");
    EXPECT_THAT(tested, SizeIs(testing::Ge(4U)));

    const std::string readme = contentOf(root / "README.md");
    std::set<std::string> shown;
    for (const auto& row : found(readme.substr(readme.find("## Compilers")), R"(\n\| (`[^|]*) \|)"))
        shown.merge(found(row, "`([^`]+)`"));
    EXPECT_EQ(shown, tested);
}

TEST(Pages, NameOptionsOfTheBuildThatItHas) {
    const std::string build = buildFiles();
    const auto options = onPages("-D(KESTRIN_[A-Z_]+)");
    EXPECT_THAT(options, Not(IsEmpty()));
    for (const auto& [page, option] : options)
        EXPECT_NE(build.find(option), std::string::npos) << page << " names " << option;
}

TEST(Pages, TheReadmeNamesTheVersionsThatTheBuildAsksFor) {
    const std::string readme = contentOf(root / "README.md");
    const std::string build = buildFiles();
    EXPECT_THAT(found(build, R"(cmake_minimum_required\(VERSION ([0-9.]+)\))"),
                Each(*found(readme, "CMake ([0-9]+\\.[0-9]+)").begin()));
    EXPECT_THAT(found(build, R"(find_package\(Boost ([0-9.]+))"),
                Each(*found(readme, "Boost ([0-9]+\\.[0-9]+)").begin()));
}

}  // namespace
