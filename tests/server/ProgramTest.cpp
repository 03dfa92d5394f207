// The program as its users run it.
#include <algorithm>
#include <fstream>
#include <signal.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include <internal/Base64URL.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

using Arguments = std::vector<std::string>;

class ProgramTest : public testing::Test {
  protected:
    Arguments with(const Arguments& more = {}) const {
        Arguments all{"--database", database.string(), "--port",
                      "0",          "--write-config",  configuration.string()};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    /// Runs a command line that ends by itself; its exit code.
    int run(const Arguments& arguments) {
        auto process = startServer(arguments);
        const int code = process.wait();
        output = process.output();
        errors = process.errors();
        return code;
    }

    boost::json::value configured() const {
        return boost::json::parse(TestSupport::contentOf(configuration));
    }

    TestSupport::TemporaryDirectory folder;
    std::filesystem::path database = folder / "profiles.sqlite";
    std::filesystem::path configuration = folder / "configuration.json";
    std::string output;
    std::string errors;
};

TEST_F(ProgramTest, printsExactlyOneReadyLineAndStopsCleanlyOnSIGTERM) {
    auto process = startServer(with());
    const std::string url = waitUntilReady(process);
    EXPECT_TRUE(url.starts_with("http://127.0.0.1:")) << url;
    EXPECT_GT(std::stoi(url.substr(17)), 0);
    EXPECT_EQ(outcomeOf(HttpClient(url).send("GET", "/healthz")), "200");
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(process.output(), "kestrin-profile-server ready on " + url + "\n");
}

TEST_F(ProgramTest, stopsCleanlyOnSIGINTAndClosesTheDatabase) {
    auto process = startServer(with());
    HouseholdClient client = householdClient(process, configuration);
    const Caller parent = client.bind("parent");
    client.call(parent, "PUT", "/v1/favorites/show?show=s&brand=b&profile=parent&v=1");
    process.signal(SIGINT);
    EXPECT_EQ(process.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(database.string() + "-wal"));
    EXPECT_FALSE(std::filesystem::exists(database.string() + "-shm"));
}

TEST_F(ProgramTest, stopsAlthoughConnectionsAreOpen) {
    auto process = startServer(with());
    const std::string url = waitUntilReady(process);
    HttpClient idle(url);
    idle.send("GET", "/healthz");
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
}

TEST_F(ProgramTest, theWrittenConfigurationCoversTheWholeTable) {
    auto process = startServer(with({"--brand", "other \"brand\"", "--parent-profile", "mum"}));
    const std::string url = waitUntilReady(process);
    const auto document = configured();
    EXPECT_EQ(document.at("version").as_int64(), 1);
    EXPECT_EQ(document.at("brand").as_string(), "other \"brand\"");
    EXPECT_EQ(document.at("parentProfileID").as_string(), "mum");
    EXPECT_TRUE(document.at("development").as_bool());
    EXPECT_EQ(document.as_object().size(), 5U);
    const auto& services = document.at("services").as_object();
    EXPECT_EQ(services.size(), 22U);
    for (const Route& route : routes()) {
        const auto& service = services.at(route.operation);
        EXPECT_EQ(service.at("method").as_string(), route.method);
        EXPECT_EQ(service.at("url").as_string(), url + urlTemplate(route));
        EXPECT_EQ(service.at("body").as_string(),
                  route.body.rule == BodyRule::none ? "none" : "json");
        const bool isBind = route.operation == "personalization-bind-anonymous";
        EXPECT_EQ(service.as_object().size(), isBind ? 4U : 3U) << route.operation;
    }
    EXPECT_EQ(secretIn(configuration).size(), 64U);
}

TEST_F(ProgramTest, theWrittenConfigurationIsForItsOwnerOnlyAlsoWhenItReplacesAnother) {
    std::ofstream(configuration) << "old";
    ::chmod(configuration.c_str(), 0644);
    auto process = startServer(with());
    waitUntilReady(process);
    struct stat status{};
    ASSERT_EQ(::stat(configuration.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(configured().at("version").as_int64(), 1);
}

TEST_F(ProgramTest, theWrittenConfigurationIsEnoughToBind) {
    auto process = startServer(with());
    waitUntilReady(process);
    const auto bind = configured().at("services").at("personalization-bind-anonymous");
    const std::string url(bind.at("url").as_string());
    const auto pathStart = url.find('/', 8);
    HttpClient http(url.substr(0, pathStart));
    const auto reply =
        http.send(std::string(bind.at("method").as_string()),
                  replaced(url.substr(pathStart), "%UXID%", "parent"),
                  {{"Content-Type", "application/json"},
                   {"X-Household-Secret",
                    std::string(bind.at("headers").at("X-Household-Secret").as_string())}},
                  R"({"profileId":"parent"})");
    EXPECT_EQ(outcomeOf(reply), "200");
}

TEST_F(ProgramTest, aPortInUseIsAClearErrorAndLeavesTheConfigurationAlone) {
    auto first = startServer(with());
    const std::string port = waitUntilReady(first).substr(17);
    const std::string before = TestSupport::contentOf(configuration);
    TestSupport::TemporaryDirectory other;
    auto second = startServer({"--database", (other / "db").string(), "--port", port,
                               "--write-config", configuration.string()});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(second.output(), "");
    EXPECT_NE(second.errors().find("cannot listen on 127.0.0.1:" + port), std::string::npos)
        << second.errors();
    EXPECT_EQ(TestSupport::contentOf(configuration), before);
}

TEST_F(ProgramTest, anUnwritableConfigurationIsAClearError) {
    configuration = folder / "missing/configuration.json";
    EXPECT_EQ(run(with()), 1);
    EXPECT_EQ(output, "");
    EXPECT_NE(errors.find("cannot write the configuration '" + configuration.string() + "'"),
              std::string::npos)
        << errors;
}

TEST_F(ProgramTest, anUnusableDatabaseIsAClearError) {
    std::ofstream(database) << std::string(5000, 'x');
    EXPECT_EQ(run(with()), 1);
    EXPECT_NE(errors.find("cannot open the database '" + database.string() + "'"),
              std::string::npos)
        << errors;
}

TEST_F(ProgramTest, anAddressThatIsNoneIsAClearError) {
    EXPECT_EQ(run(with({"--host", "nowhere.example"})), 1);
    EXPECT_NE(errors.find("--host 'nowhere.example'"), std::string::npos) << errors;
}

TEST_F(ProgramTest, aWrongCommandLineHasItsOwnExitCode) {
    for (const Arguments& wrong :
         {Arguments{"--no-such-option"}, Arguments{"--port", "65536"}, Arguments{"--port", "x"},
          Arguments{"--max-profiles", "0"}, Arguments{"--max-size", "-1"},
          Arguments{"--token-lifetime", "0"}, Arguments{"--threads", "0"},
          Arguments{"--parent-profile", "a#b"}, Arguments{"--parent-profile", " a"},
          Arguments{"--parent-profile", "a b"}, Arguments{"--parent-profile", "\xC3\xA9"},
          Arguments{"--block", "a\tb"}, Arguments{"--block", "a&b"},
          Arguments{"--household", "\xFF"}, Arguments{"--brand", "\xFF"}, Arguments{"stray"}}) {
        EXPECT_EQ(run(with(wrong)), 2) << wrong.front();
        EXPECT_NE(errors.find("--help"), std::string::npos);
        EXPECT_FALSE(std::filesystem::exists(database));
    }
}

TEST_F(ProgramTest, helpExplainsEveryOptionAndExitCode) {
    EXPECT_EQ(run({"--help"}), 0);
    for (const char* word :
         {"--database", "--host", "--port", "--write-config", "--brand", "--parent-profile",
          "--household", "--block", "--unblock", "--max-profiles", "--max-size", "--token-lifetime",
          "--threads", "--quiet", "Exit codes:", "SIGTERM"}) {
        EXPECT_NE(output.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(errors, "");
}

TEST_F(ProgramTest, theOptionsReachTheService) {
    auto process = startServer(with({"--household", "ours", "--parent-profile", "mum", "--block",
                                     "bad", "--block", "worse", "--max-profiles", "2", "--max-size",
                                     "1", "--token-lifetime", "7", "--threads", "1", "--quiet"}));
    HouseholdClient client = householdClient(process, configuration);
    const Caller mum = client.bind("mum");
    EXPECT_EQ(outcomeOf(client.tryBind("bad")), "403 profile-blocked");
    EXPECT_EQ(outcomeOf(client.tryBind("worse")), "403 profile-blocked");
    const std::string create = "/v1/profiles?profile=mum&v=1";
    EXPECT_EQ(outcomeOf(client.call(mum, "POST", create, R"({"username":"A"})")), "201");
    EXPECT_EQ(outcomeOf(client.call(mum, "POST", create, R"({"username":"B"})")),
              "409 too-many-profiles");
    for (const char* show : {"a", "b"}) {
        client.call(mum, "PUT",
                    std::string("/v1/favorites/show?show=") + show + "&brand=b&profile=mum&v=1");
    }
    EXPECT_EQ(client.idsOf(mum, "/v1/favorites?brand=b&profile=mum&v=1"), "b");
    const auto start = mum.token.find('.') + 1;
    const std::string payload =
        KestrinInternal::base64URLDecoded(mum.token.substr(start, mum.token.rfind('.') - start))
            .value();
    const auto claims = boost::json::parse(payload);
    EXPECT_EQ(claims.at("exp").as_int64() - claims.at("iat").as_int64(), 7);
    EXPECT_EQ(claims.at("hh").as_string(), "ours");
    EXPECT_EQ(process.errors(), "");
}

TEST_F(ProgramTest, unblockEndsBlock) {
    {
        auto process = startServer(with({"--block", "parent"}));
        HouseholdClient client = householdClient(process, configuration);
        EXPECT_EQ(outcomeOf(client.tryBind("parent")), "403 profile-blocked");
    }
    auto process = startServer(with({"--unblock", "parent"}));
    HouseholdClient client = householdClient(process, configuration);
    EXPECT_EQ(outcomeOf(client.tryBind("parent")), "200");
}

TEST_F(ProgramTest, theLogHasOneLinePerRequestWithoutQueryHeaderOrBody) {
    auto process = startServer(with());
    HouseholdClient client = householdClient(process, configuration);
    const Caller parent = client.bind("parent");
    client.call(parent, "PUT", "/v1/history/video?video=private&brand=b&profile=parent&v=1",
                R"({"type":"confidential"})");
    client.http.send("GET", "/nowhere?private");
    process.signal(SIGTERM);
    process.wait();
    const std::string log = process.errors();
    EXPECT_EQ(std::ranges::count(log, '\n'), 3) << log;
    EXPECT_NE(log.find(" POST /v1/binds 200 "), std::string::npos) << log;
    EXPECT_NE(log.find(" PUT /v1/history/video 204 "), std::string::npos) << log;
    EXPECT_NE(log.find(" GET /nowhere 404 "), std::string::npos) << log;
    for (const std::string& secret : {std::string("private"), std::string("confidential"),
                                      parent.token, secretIn(configuration)}) {
        EXPECT_EQ(log.find(secret), std::string::npos);
    }
}

TEST_F(ProgramTest, theLogShowsNothingThatATerminalObeys) {
    auto process = startServer(with());
    const std::string url = waitUntilReady(process);
    for (const char* path : {"/a\xC2\x9B"
                             "31mred",
                             "/a\xC2\x85next line", "/a\xE2\x80\xAEtfel",
                             "/a\xE2\x81\xA6"
                             "b",
                             "/a\xE2\x80\xA8"
                             "b",
                             "/a\x80"
                             "b",
                             "/\xEF\xBB\xBF", "/\xD8\x9C"}) {
        sendRaw(url, "GET " + replaced(path, " ", "") +
                         " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    }
    process.signal(SIGTERM);
    process.wait();
    const std::string log = process.errors();
    EXPECT_EQ(std::ranges::count(log, '\n'), 8) << log;
    for (const char* shown :
         {" /a\\u009b31mred ", " /a\\u0085nextline ", " /a\\u202etfel ", " /a\\u2066b ",
          " /a\\u2028b ", " /a?b ", " /\\ufeff ", " /\\u061c "}) {
        EXPECT_NE(log.find(shown), std::string::npos) << shown << log;
    }
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
