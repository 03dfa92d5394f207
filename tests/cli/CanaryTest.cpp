#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "CommandLineFixture.hpp"
#include "support/RawServer.hpp"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using TestSupport::CommandLine;
using TestSupport::contentOf;
using TestSupport::httpReply;
using TestSupport::RawConnection;
using TestSupport::RawServer;
using TestSupport::write;

const std::string token = "eyJ0b2tlbiI6ImNhbmFyeSJ9.canary-5f1c9e.signature";
const std::string householdSecret = "canary-of-the-household-77aa";
const std::string goodBind = R"({"profileId":"parent","token":")" + token + R"("})";

/// A reply to anything but the request for a bind.
using Reply = std::function<std::string(const std::string& request)>;

std::string fine(const std::string& /*request*/) {
    return httpReply(200, R"({"id":"x","elements":[{"id":"v1","type":"VIDEO","progress":3}],)"
                          R"("profileId":"anna","username":"Anna","default":false,)"
                          R"("data":[{"profileId":"parent","username":"Parent","default":true},)"
                          R"({"profileId":"anna","username":"Anna","default":false}]})");
}

/// A request as a service would repeat it in a JSON text.
std::string repeated(const std::string& request) {
    std::string text = std::regex_replace(request, std::regex(R"(["\\])"), " ");
    return std::regex_replace(text, std::regex("[\r\n]+"), " ");
}

std::string problem(int status, const std::string& request) {
    return httpReply(status,
                     R"({"type":")" + token + R"(","title":")" + token + R"(","detail":")" +
                         repeated(request) + token + R"("})",
                     "Content-Type: application/problem+json\r\nX-Echo: " + token + "\r\n");
}

struct Service {
    const char* name;
    Reply reply;
    std::string bind = httpReply(200, goodBind);
    bool closes = false;  ///< the connection after each reply
};

/// Services of all kinds, most of which repeat what they were sent.
std::vector<Service> services(const std::string& url) {
    const auto always = [](const std::string& reply) {
        return [reply](const std::string&) { return reply; };
    };
    std::vector<Service> all{
        {"fine", fine},
        {"cut", always("HTTP/1.1 200 OK\r\nContent-Length: 900\r\n\r\n{\"" + token),
         httpReply(200, goodBind), true},
        {"no JSON", always(httpReply(200, "{\"data\":" + token))},
        {"other JSON", always(httpReply(200, R"({"data":")" + token + "\"}"))},
        {"no HTTP", always(token + "\r\n\r\n")},
        {"a broken header", always("HTTP/1.1 200 OK\r\n" + token + "\r\n\r\n")},
        {"a redirect", always("HTTP/1.1 302 Found\r\nLocation: " + url + "/?" + token +
                              "\r\nContent-Length: 0\r\n\r\n")}};
    for (const int status : {400, 401, 403, 404, 409, 500})
        all.push_back(
            {"problem", [status](const std::string& request) { return problem(status, request); }});
    for (const std::string& bind :
         {httpReply(403, "{}"),
          httpReply(200, R"({"profileId":"parent","token":")" + token + R"(\r\n"})"),
          httpReply(200, R"({"profileId":1,"token":")" + token + R"("})"),
          httpReply(200, R"({"token":")" + token), httpReply(500, token)})
        all.push_back({"no bind", fine, bind});
    return all;
}

const std::vector<std::vector<std::string>> commands{
    {"bind"},
    {"profiles", "list"},
    {"profiles", "create", "Anna"},
    {"profiles", "edit", "anna", "--name", "Zoe"},
    {"profiles", "delete", "anna", "--yes"},
    {"profiles", "validate", "Anna"},
    {"history", "list"},
    {"history", "progress", "v1"},
    {"history", "add", "v1", "--progress", "3"},
    {"history", "remove", "v1", "v2"},
    {"history", "clear", "--yes"},
    {"favorites", "add-many", "s1", "s2"},
    {"watchlist", "add", "v1", "v2"},
    {"search", "add", "text"},
    {"search", "delete", "--yes"},
    {"favorites", "add", "s1", "--later"},
    {"history", "clear", "--yes", "--later"},
    {"outbox", "list"},
    {"outbox", "send"},
    {"config", "show"},
    {"config", "check"},
    {"bind", "--new"},
    {"doctor"},
    {"api", "personalization-bind-anonymous"},
    {"api", "personalization-history-get"},
    {"api", "personalization-watchlist-add-video", "video=v1"},
    {"completion", "profiles"},
    {"unbind", "--all"},
};

class Canary : public CommandLine {
  protected:
    /// The service's own configuration, for another server and with another secret.
    void configureFor(const std::string& url) {
        startService();
        std::string text = contentOf(configuration);
        service.reset();
        text = std::regex_replace(text, std::regex(R"(http://127\.0\.0\.1:\d+)"), url);
        text = std::regex_replace(text, std::regex(R"rx(("X-Household-Secret"\s*:\s*")[^"]*)rx"),
                                  "$1" + householdSecret);
        write(configuration, text);
    }

    /// Expects that a command leaves its secrets nowhere but in their own files.
    void expectNoTrace(std::vector<std::string> arguments) {
        const std::string name = testing::PrintToString(arguments);
        const Result result = runConfigured(std::move(arguments));
        for (const std::string& secret : {token, householdSecret})
            for (const std::string& text : {result.output, result.errors})
                EXPECT_THAT(text, Not(HasSubstr(secret))) << name;
        for (const auto& each : fs::recursive_directory_iterator(directory.path())) {
            if (!each.is_regular_file() || each.path() == configuration) continue;
            const std::string content = contentOf(each.path());
            EXPECT_THAT(content, Not(HasSubstr(householdSecret))) << each.path();
            if (each.path() != bindFile()) {
                EXPECT_THAT(content, Not(HasSubstr(token))) << each.path();
            }
        }
    }

    void become(Service next) {
        const std::scoped_lock lock(mutex);
        current = std::move(next);
    }

    [[nodiscard]] bool closes() {
        const std::scoped_lock lock(mutex);
        return current.closes;
    }

    [[nodiscard]] std::string replyTo(const std::string& request) {
        const std::scoped_lock lock(mutex);
        const bool isBind = request.find("/binds") != std::string::npos;
        return isBind ? current.bind : current.reply(request);
    }

    std::mutex mutex;
    Service current{"fine", fine};
    RawServer server{[this](RawConnection& connection) {
        while (const auto request = connection.readRequest())
            if (!connection.send(replyTo(*request)) || closes()) return;
    }};
};

TEST_F(Canary, TheSecretsAreSentAndKeptSoThatTheyCouldBeFound) {
    configureFor(server.url(""));
    ASSERT_EQ(runConfigured({"watchlist", "list"}).code, 0);
    EXPECT_THAT(contentOf(bindFile()), HasSubstr(token));
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_THAT(server.requests()[0], HasSubstr(householdSecret));
    EXPECT_THAT(server.requests()[1], HasSubstr(token));
    become({"refusing", [](const std::string& request) { return problem(400, request); }});
    const auto refused = runConfigured({"watchlist", "list"});
    EXPECT_THAT(refused.errors, HasSubstr("JWT ***")) << "the service repeats what it was sent";
}

TEST_F(Canary, ATokenIsHiddenAlsoWhereNoBindIsKept) {
    configureFor(server.url(""));
    write(directory / "state", "a file in the place of the folder");
    become({"refusing", [](const std::string& request) { return problem(400, request); }});
    const auto refused = runConfigured({"watchlist", "list"});
    EXPECT_THAT(refused.errors, AllOf(HasSubstr("binds are not kept"), HasSubstr("JWT ***"),
                                      Not(HasSubstr(token))));
}

TEST_F(Canary, NoCommandShowsOrKeepsASecretWhateverTheServiceSays) {
    configureFor(server.url(""));
    // Every command meets some services of each kind; all with all would take minutes.
    constexpr std::size_t share = 8;
    std::size_t first = 0;
    for (const Service& each : services(server.url(""))) {
        SCOPED_TRACE(each.name);
        become(each);
        fs::remove(bindFile());
        for (std::size_t command = first++ % share; command < commands.size(); command += share) {
            auto arguments = commands[command];
            arguments.emplace_back("-v");
            if (command / share % 2 == 0) arguments.emplace_back("--json");
            expectNoTrace(std::move(arguments));
        }
    }
}

TEST_F(Canary, NeitherADryRunNorABrokenConfigurationNorABrokenBindFileShowsASecret) {
    configureFor(server.url(""));
    ASSERT_EQ(runConfigured({"bind"}).code, 0);
    for (const auto& command : commands) {
        auto arguments = command;
        arguments.insert(arguments.end(), {"-v", "--dry-run"});
        expectNoTrace(std::move(arguments));
    }
    for (const std::string& content :
         {token, "{\"version\":1,\"binds\":[" + goodBind + "]}",
          R"({"version":1,"revision":1,"binds":[{"profileId":"parent","token":")" + token +
              R"(\n"}]})",
          R"({"version":1,"revision":1,"binds":[)" + goodBind + "," + goodBind + "]}"}) {
        write(bindFile(), content);
        expectNoTrace({"-v", "watchlist", "list"});
    }
    const std::string sound = contentOf(configuration);
    for (const std::string& end : {std::string(), std::string("]"), '"' + token}) {
        write(configuration, sound.substr(0, sound.size() / 2) + end);
        expectNoTrace({"-v", "watchlist", "list"});
        expectNoTrace({"config", "check", "--json"});
    }
    write(configuration, std::regex_replace(sound, std::regex("X-Household-Secret"), "X Secret"));
    expectNoTrace({"-v", "watchlist", "list"});
    expectNoTrace({"config", "check"});
}

}  // namespace
