// The program for people who want to begin: what it makes, writes and says.
#include <algorithm>
#include <fstream>
#include <signal.h>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include <kestrin-profile-server/ClientConfiguration.hpp>
#include <kestrin-profile-server/Introduction.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

class StartTest : public testing::Test {
  protected:
    TestSupport::Program start(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), KESTRIN_PROFILE_SERVER_PROGRAM);
        return TestSupport::Program(std::move(arguments),
                                    {{"HOME", (folder / "home").string()},
                                     {"XDG_CONFIG_HOME", (folder / "config").string()},
                                     {"XDG_STATE_HOME", (folder / "state").string()},
                                     {"TMPDIR", temporary.string()}});
    }

    static int stop(TestSupport::Program& program, int signal = SIGTERM) {
        program.signal(signal);
        return program.wait();
    }

    /// Those of the household that the program has shown.
    std::string profilesOf(const TestSupport::Program& program,
                           const std::filesystem::path& file) const {
        HouseholdClient client = householdClient(program, file);
        const Caller parent = client.bind("parent");
        std::string all;
        const auto list = client.call(parent, "GET", "/v1/profiles?profile=parent&v=1").json();
        for (const auto& each : list.at("data").as_array())
            all += std::string(each.at("username").as_string()) + " ";
        return all;
    }

    int wrongUsage(std::vector<std::string> arguments) {
        auto program = start(std::move(arguments));
        const int code = program.wait();
        errors = program.errors();
        return code;
    }

    TestSupport::TemporaryDirectory folder;
    std::filesystem::path temporary = [this] {
        const auto path = folder / "temporary";
        std::filesystem::create_directory(path);
        return path;
    }();
    std::filesystem::path found = folder / "config/kestrin-profile/config.json";
    std::string errors;
};

TEST_F(StartTest, withADemoHouseholdItIsUsefulAtOnceAndLeavesNothingButTheConfiguration) {
    auto program = start({"--demo", "--port", "0"});
    EXPECT_EQ(profilesOf(program, found), "Parent Anna Ben ");
    const std::string url = waitUntilReady(program);
    AdminClient admin(url);
    EXPECT_EQ(admin.get("profiles/anna").at("searches").at(0).at("term"), "otters");
    const std::string said = program.awaitOutput("\nor ");
    EXPECT_TRUE(said.starts_with("kestrin-profile-server ready on " + url + "\n")) << said;
    EXPECT_NE(said.find("inspector      " + url + "/admin/\n"), std::string::npos) << said;
    EXPECT_EQ(HttpClient(url).send("GET", "/admin/").status, 200);
    EXPECT_NE(said.find("configuration  " + found.string() + "\n"), std::string::npos) << said;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temporary), {}), 1);
    EXPECT_EQ(stop(program), 0);
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
    EXPECT_FALSE(std::filesystem::exists(folder / "state"));
}

TEST_F(StartTest, theLinesThatItShowsWork) {
    auto program = start({"--demo", "--port", "0"});
    waitUntilReady(program);
    const std::string said = program.awaitOutput("v=1'\n");
    const std::size_t begin = said.find("token=$(");
    ASSERT_NE(begin, std::string::npos) << said;
    TestSupport::Program shell({"sh", "-c", said.substr(begin)}, {{"no_proxy", "*"}});
    EXPECT_EQ(shell.wait(), 0) << shell.errors();
    EXPECT_EQ(boost::json::parse(shell.output()).at("elements").at(0).at("id"),
              "harbour-lights-s1e3")
        << shell.output();
}

TEST_F(StartTest, withTLSEverythingThatItWritesAndShowsIsOfHTTPS) {
    const auto authority = folder / "state/kestrin-profile-server/tls/authority.pem";
    auto program = start({"--demo", "--tls", "--tls-name", "phone.test", "--port", "0"});
    const std::string url = waitUntilReady(program);
    EXPECT_TRUE(url.starts_with("https://127.0.0.1:")) << url;
    const std::string said = program.awaitOutput("v=1'\n");
    EXPECT_NE(said.find("authority      " + authority.string()), std::string::npos) << said;
    EXPECT_NE(TestSupport::contentOf(found).find("\"" + url + "/v1/binds"), std::string::npos);
    HttpClient phone("https://phone.test:" + std::to_string(portIn(url)), authority.string());
    EXPECT_EQ(phone.send("GET", "/development-authority.pem").body,
              TestSupport::contentOf(authority));
    TestSupport::Program shell({"sh", "-c", said.substr(said.find("token=$("))},
                               {{"no_proxy", "*"}});
    EXPECT_EQ(shell.wait(), 0) << shell.errors();
    EXPECT_EQ(boost::json::parse(shell.output()).at("elements").at(0).at("id"),
              "harbour-lights-s1e3")
        << shell.output();
    EXPECT_NE(program.errors().find("a new certificate authority"), std::string::npos);

    const std::string kept = TestSupport::contentOf(authority);
    auto next = start({"--demo", "--tls", "--tls-name", "phone.test", "--port", "0"});
    waitUntilReady(next);
    EXPECT_EQ(TestSupport::contentOf(authority), kept);
    EXPECT_EQ(next.errors().find("a new certificate authority"), std::string::npos);
}

TEST(OptionsTest, theCertificateIsForTheHostsThatTheWordsTell) {
    const auto namesOf = [](std::vector<const char*> words) {
        words.insert(words.begin(), {"kestrin-profile-server", "--data", "d", "--tls"});
        const auto parsed = parsedCommandLine(static_cast<int>(words.size()), words.data());
        const auto* const options = std::get_if<Options>(&parsed);
        if (options == nullptr) return std::vector<std::string>{std::get<EarlyEnd>(parsed).message};
        EXPECT_EQ(options->tls->folder, std::filesystem::path("d/tls"));
        return options->tls->names;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(namesOf({}), Names{});
    EXPECT_EQ(namesOf({"--host", "0.0.0.0", "--public-url", "https://192.168.1.20:8480"}),
              Names{"192.168.1.20"});
    EXPECT_EQ(namesOf({"--host", "192.168.1.20", "--tls-name", "a", "--tls-name", "b",
                       "--public-url", "https://[2001:db8::1]:1"}),
              (Names{"a", "b", "192.168.1.20", "2001:db8::1"}));
    EXPECT_NE(namesOf({"--public-url", "http://x"}).front().find("begins with https://"),
              std::string::npos);
}

TEST_F(StartTest, whatAKilledOneHasLeftIsRemovedByTheNext) {
    auto killed = start({"--demo", "--port", "0"});
    waitUntilReady(killed);
    auto running = start({"--demo", "--port", "0"});
    waitUntilReady(running);
    stop(killed, SIGKILL);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temporary), {}), 2);
    auto next = start({"--demo", "--port", "0"});
    waitUntilReady(next);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temporary), {}), 2);
    EXPECT_EQ(outcomeOf(HttpClient(waitUntilReady(running)).send("GET", "/healthz")), "200");
    stop(running);
    stop(next);
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
}

TEST_F(StartTest, aFolderKeepsEverything) {
    const std::string data = (folder / "data").string();
    {
        auto program = start({"--data", data, "--port", "0"});
        HouseholdClient client = householdClient(program, found);
        const Caller parent = client.bind("parent");
        EXPECT_EQ(outcomeOf(client.call(parent, "DELETE", "/v1/profile?target=anna&v=1")), "204");
        EXPECT_EQ(stop(program, SIGHUP), 0);
    }
    auto program = start({"--data", data, "--port", "0"});
    EXPECT_EQ(profilesOf(program, found), "Parent Ben ");
    EXPECT_EQ(outcomeOf(AdminClient(waitUntilReady(program)).call("GET", "status")), "200");
}

TEST_F(StartTest, theConfigurationOfSomebodyElseStays) {
    std::filesystem::create_directories(found.parent_path());
    TestSupport::write(found, "{}\n");
    {
        auto program = start({"--demo", "--port", "0"});
        const auto other = folder / "state/kestrin-profile-server/config.json";
        EXPECT_EQ(profilesOf(program, other), "Parent Anna Ben ");
        EXPECT_NE(program.awaitOutput("\nor ").find("--config " + other.string()),
                  std::string::npos);
    }
    EXPECT_EQ(TestSupport::contentOf(found), "{}\n");
    std::filesystem::remove(found);
    std::string written;
    {
        auto program = start({"--demo", "--port", "0"});
        waitUntilReady(program);
        written = TestSupport::contentOf(found);
        EXPECT_TRUE(isClientConfiguration(written));
    }
    auto program = start({"--demo", "--port", "0"});
    waitUntilReady(program);
    EXPECT_NE(TestSupport::contentOf(found), written) << "its own is replaced";
}

TEST_F(StartTest, aConfigurationThatSomebodyHasChangedIsSomebodyElses) {
    Household household;
    household.parentProfileID = "parent";
    household.secret = "letters";
    for (const char* const url : {"http://127.0.0.1:8480", "http://192.168.1.20:8480",
                                  "https://phone.example", "http://127.0.0.1:1/n/one"}) {
        const std::string text = clientConfiguration(url, "kestrin", household);
        EXPECT_TRUE(isClientConfiguration(text)) << url;
        EXPECT_FALSE(isClientConfiguration(text + "\n")) << url;
        EXPECT_FALSE(isClientConfiguration(replaced(text, "\"GET\"", "\"PUT\""))) << url;
        EXPECT_EQ(text.find("cleartextHosts") != std::string::npos,
                  std::string_view(url).starts_with("http://192"));
    }
    for (const char* const text : {"", "{}", "[]", "1", R"({"services":[]})"})
        EXPECT_FALSE(isClientConfiguration(text)) << text;
}

TEST_F(StartTest, aSeedFileFillsANewDatabase) {
    TestSupport::write(folder / "seed.json",
                       R"({"households":[{"id":"h","profiles":[{"username":"Zoe"}]}]})");
    const std::string seed = (folder / "seed.json").string();
    const std::string database = (folder / "db").string();
    const std::string configuration = (folder / "c.json").string();
    {
        auto program = start({"--demo", "--seed", seed, "--port", "0"});
        EXPECT_EQ(profilesOf(program, found), "Parent Zoe ");
    }
    for (int time = 0; time < 2; ++time) {
        auto program = start({"--database", database, "--seed", seed, "--port", "0",
                              "--write-config", configuration});
        EXPECT_EQ(profilesOf(program, configuration), "Parent Zoe ");
        stop(program);
    }
    EXPECT_EQ(wrongUsage({"--demo", "--seed", (folder / "missing").string()}), 2);
    EXPECT_NE(errors.find("cannot be read"), std::string::npos) << errors;
    TestSupport::write(folder / "seed.json", R"({"households":[{"id":1}]})");
    EXPECT_EQ(wrongUsage({"--demo", "--seed", seed}), 2);
    EXPECT_NE(errors.find("the body.households[0].id is 1"), std::string::npos) << errors;
}

TEST_F(StartTest, aPublicAddressGoesIntoTheConfiguration) {
    auto program = start({"--demo", "--port", "0", "--public-url", "http://192.168.1.20:8480"});
    EXPECT_TRUE(waitUntilReady(program).starts_with("http://127.0.0.1:"));
    const auto document = boost::json::parse(TestSupport::contentOf(found));
    EXPECT_EQ(document.at("cleartextHosts").at(0), "192.168.1.20");
    for (const auto& service : document.at("services").as_object()) {
        EXPECT_TRUE(service.value().at("url").as_string().starts_with("http://192.168.1.20:8480/"))
            << service.key();
    }
}

TEST_F(StartTest, theAdminInterfaceIsOffWhereOthersWouldReachItWithoutASecret) {
    auto refused = start({"--demo", "--port", "0", "--host", "0.0.0.0", "--admin"});
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_NE(refused.errors().find("--admin-secret-file"), std::string::npos);
    TestSupport::write(folder / "secret", "sixteen-letters!\nanother line\n");
    auto program =
        start({"--demo", "--port", "0", "--admin-secret-file", (folder / "secret").string()});
    HttpClient http(waitUntilReady(program));
    EXPECT_EQ(outcomeOf(http.send("GET", "/admin/v1/status",
                                  {{"Authorization", "Bearer sixteen-letters!"}})),
              "200");
    EXPECT_EQ(outcomeOf(http.send("GET", "/admin/v1/status")), "401 admin-secret-required");
}

// What the words mean, without a service that others could reach.
TEST(OptionsTest, beyondThisComputerTheAdminInterfaceNeedsASecretAndTheServiceWarns) {
    const auto optionsOf = [](std::vector<const char*> words) {
        words.insert(words.begin(), "kestrin-profile-server");
        return std::get<Options>(parsedCommandLine(static_cast<int>(words.size()), words.data()));
    };
    for (const char* host : {"127.0.0.1", "127.0.0.2", "::1", "localhost"}) {
        const Options options = optionsOf({"--demo", "--host", host});
        EXPECT_TRUE(options.service.admin.isOn) << host;
        EXPECT_EQ(warning(options), "") << host;
    }
    for (const char* host : {"0.0.0.0", "::", "192.168.1.20"}) {
        const Options options = optionsOf({"--demo", "--host", host});
        EXPECT_FALSE(options.service.admin.isOn) << host;
        EXPECT_NE(warning(options).find("warning: other computers can reach"), std::string::npos);
        EXPECT_TRUE(options.isIntroduced);
    }
}

TEST_F(StartTest, whatDoesNotGoTogetherIsRefused) {
    TestSupport::write(folder / "short", "short\n");
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"--demo", "--database", "x"},
          {"--demo", "--data", "x"},
          {"--data", "x", "--database", "x"},
          {"--demo", "--household", "x"},
          {"--demo", "--parent-profile", "x"},
          {"--demo", "--public-url", "192.168.1.20"},
          {"--demo", "--public-url", "http://x/y"},
          {"--demo", "--tls-name", "phone.test"},
          {"--demo", "--tls", "--public-url", "http://x"},
          {"--demo", "--admin-secret-file", (folder / "short").string()},
          {"--demo", "--admin-secret-file", (folder / "missing").string()}}) {
        EXPECT_EQ(wrongUsage(wrong), 2) << wrong.back();
        EXPECT_NE(errors, "") << wrong.back();
    }
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
}

TEST_F(StartTest, itTellsItsVersion) {
    auto program = start({"--version"});
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.output(), "kestrin-profile-server " KESTRIN_EXPECTED_VERSION "\n");
}

TEST_F(StartTest, withoutArgumentsItIsTheDemo) {
    // The usual port may be taken on this computer; then it says so.
    auto program = start({});
    const std::string line = program.firstLine();
    if (line.empty()) {
        EXPECT_EQ(program.wait(), 1);
        EXPECT_NE(program.errors().find("cannot listen on 127.0.0.1:8480"), std::string::npos)
            << program.errors();
        return;
    }
    EXPECT_EQ(line, "kestrin-profile-server ready on http://127.0.0.1:8480");
    EXPECT_EQ(profilesOf(program, found), "Parent Anna Ben ");
    EXPECT_EQ(stop(program), 0);
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
