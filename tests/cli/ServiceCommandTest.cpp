#include <algorithm>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>

#include "CommandLineFixture.hpp"

namespace {

using HalvardSling::JSONDictionary;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using TestSupport::CommandLine;
using TestSupport::contentOf;
using TestSupport::write;

/// The admin interface of a development service, from the command line.
class ServiceCommand : public CommandLine {
  protected:
    void SetUp() override { startService({"--admin"}); }

    static std::vector<std::string> of(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "service");
        return arguments;
    }
    std::string shown(std::vector<std::string> arguments) {
        return outputOf(of(std::move(arguments)));
    }
    Result failed(std::vector<std::string> arguments) {
        return runConfigured(of(std::move(arguments)));
    }
    JSONDictionary document(std::vector<std::string> arguments) {
        arguments.emplace_back("--json");
        auto parsed = JSONDictionary::parse(shown(std::move(arguments)));
        return std::get<JSONDictionary>(std::move(parsed));
    }

    /// The address that the service says it has.
    std::string address() { return std::string(document({"status"}).text("baseUrl").value()); }
};

TEST_F(ServiceCommand, StatusSaysWhatThereIs) {
    EXPECT_THAT(shown({"status"}),
                AllOf(ContainsRegex("\nbaseUrl +http://127.0.0.1:[0-9]+\n"),
                      ContainsRegex("\nprofiles +1\n"), ContainsRegex("\njournal +entries=0 ")));
    EXPECT_EQ(document({"status"}).integer("profiles"), 1);
}

TEST_F(ServiceCommand, TheServiceIsTheOneThatTheConfigurationOrTheAddressNames) {
    const std::string url = address();
    for (const std::string& typed : {url, url + "/", url + "/admin", url + "/admin/"}) {
        const auto result = run({"service", "status", "--url", typed});
        EXPECT_EQ(result.code, 0) << result.errors;
    }
    EXPECT_EQ(run({"service", "status"}).code, 2) << "no configuration, no address";
    environment["KESTRIN_PROFILE_SERVICE_URL"] = url;
    EXPECT_EQ(run({"service", "status"}).code, 0);
    EXPECT_EQ(run({"service", "status", "--url", "what is this"}).code, 2);
}

TEST_F(ServiceCommand, AServiceThatIsAwayOrHasNoAdminInterfaceIsNamed) {
    service.reset();
    EXPECT_EQ(failed({"status"}).code, 5);
    startService();
    const auto result = failed({"status"});
    EXPECT_EQ(result.code, 6);
    EXPECT_THAT(result.errors, HasSubstr("kestrin-profile-server --admin"));
}

TEST_F(ServiceCommand, TheSecretComesFromAFileOrTheEnvironmentAndIsNeverShown) {
    constexpr const char* secret = "a-secret-of-many-letters";
    write(directory / "secret", std::string(secret) + "\n");
    service.reset();
    startService({"--admin", "--admin-secret-file", directory / "secret"});
    const auto refused = failed({"status"});
    EXPECT_EQ(refused.code, 4);
    EXPECT_THAT(refused.errors, HasSubstr("--secret-file"));
    const auto taken = failed({"status", "-v", "--secret-file", directory / "secret"});
    EXPECT_EQ(taken.code, 0) << taken.errors;
    EXPECT_THAT(taken.output + taken.errors, Not(HasSubstr(secret)));
    const auto dry = failed({"status", "--dry-run", "--secret-file", directory / "secret"});
    EXPECT_THAT(dry.output, AllOf(StartsWith("curl "), HasSubstr("$KESTRIN_AUTHORIZATION"),
                                  Not(HasSubstr(secret))));
    environment["KESTRIN_PROFILE_SERVICE_SECRET"] = secret;
    EXPECT_EQ(failed({"status"}).code, 0);
    EXPECT_EQ(failed({"status", "--secret-file", directory / "none"}).code, 2);
    write(directory / "empty", "\n" + std::string(secret));
    const auto empty = failed({"status", "--secret-file", directory / "empty"});
    EXPECT_EQ(empty.code, 2);
    EXPECT_THAT(empty.errors, HasSubstr("has no secret in its first line"));
}

TEST_F(ServiceCommand, TheSecretOfTheEnvironmentGoesWhereItIsMeantToGoAlone) {
    const std::string url = address();
    environment["KESTRIN_PROFILE_SERVICE_SECRET"] = "a-secret-of-many-letters";
    const auto refused = [&](const std::string& named) {
        const auto result = failed({"status", "--dry-run", "--url", named});
        EXPECT_THAT(result.errors, Not(HasSubstr("many-letters")));
        return result.code == 2 &&
               result.errors.find("$KESTRIN_PROFILE_SERVICE_SECRET") != std::string::npos;
    };
    EXPECT_FALSE(refused(url));
    EXPECT_FALSE(refused("https://localhost:1"));
    EXPECT_TRUE(refused("https://service.test"));
    EXPECT_TRUE(refused("http://192.0.2.1:8480"));
    environment["KESTRIN_PROFILE_SERVICE_URL"] = "https://service.test/admin/";
    EXPECT_FALSE(refused("https://service.test"));
    EXPECT_FALSE(refused("https://service.test:443/n/one"));
    EXPECT_TRUE(refused("https://service.test:444"));
    EXPECT_TRUE(refused("https://other.test"));
    EXPECT_TRUE(refused(url)) << "the secret is of another service";
    write(directory / "secret", "another-one-of-letters\n");
    EXPECT_EQ(failed({"status", "--dry-run", "--url", "https://other.test", "--secret-file",
                      directory / "secret"})
                  .code,
              0);
}

TEST_F(ServiceCommand, NoSecretGoesToAnotherComputerInCleartextUnlessTheConfigurationAllowsIt) {
    write(directory / "secret", "a-secret-of-many-letters\n");
    const std::string there = "http://192.0.2.1:8480";
    const auto asked = [&](const std::string& url) {
        return failed({"status", "--dry-run", "--url", url, "--secret-file", directory / "secret"});
    };
    EXPECT_EQ(asked("https://192.0.2.1:8480").code, 0);
    const auto refused = asked(there);
    EXPECT_EQ(refused.code, 2);
    EXPECT_THAT(refused.errors, AllOf(HasSubstr("in cleartext"), HasSubstr("--tls")));
    const std::string configured = contentOf(configuration);
    const std::string elsewhere =
        std::regex_replace(configured, std::regex("http://127\\.0\\.0\\.1:[0-9]+"), there);
    write(configuration, std::regex_replace(elsewhere, std::regex("\"services\""),
                                            "\"cleartextHosts\": [\"192.0.2.1\"], \"services\""));
    const auto allowed = asked(there);
    EXPECT_EQ(allowed.code, 0) << allowed.errors;
    EXPECT_THAT(allowed.errors, HasSubstr("warning: the secret goes to http://192.0.2.1:8480"));
    EXPECT_EQ(asked("http://192.0.2.1:1").code, 2) << "another port is another service";
}

TEST_F(ServiceCommand, AStateIsASeedThatCanBeKeptAndGivenBack) {
    outputOf({"watchlist", "add", "v1"});
    const std::string seed = shown({"state", "show"});
    EXPECT_THAT(seed, HasSubstr(R"("videoId":"v1")"));
    write(directory / "seed.json", seed);
    outputOf({"watchlist", "clear", "--yes"});
    EXPECT_EQ(failed({"state", "replace", "--from", directory / "seed.json"}).code, 2)
        << "nobody can be asked";
    EXPECT_THAT(outputOf({"watchlist", "list"}), HasSubstr("0 entries"));
    shown({"state", "replace", "--from", directory / "seed.json", "--yes"});
    EXPECT_THAT(outputOf({"watchlist", "list"}), HasSubstr("v1"));

    write(directory / "more.json",
          R"({"households":[{"id":"other","parent":{"username":"Mum","profileId":"mum"}}]})");
    EXPECT_EQ(shown({"state", "add", "--from", directory / "more.json"}), "added\n");
    EXPECT_THAT(shown({"households"}), ContainsRegex("\nother +mum +Mum +no +0 +0 +0 +0\n"));
    EXPECT_EQ(failed({"state", "add"}).code, 2);
    const auto wrong = failed({"state", "add", "--from", directory / "none.json"});
    EXPECT_EQ(wrong.code, 2);
    write(directory / "wrong.json", R"({"house":[]})");
    const auto refused = failed({"state", "add", "--from", directory / "wrong.json"});
    EXPECT_EQ(refused.code, 7);
    EXPECT_THAT(refused.errors, HasSubstr("house"));
}

TEST_F(ServiceCommand, ScenariosAreListedAndApplied) {
    EXPECT_THAT(shown({"scenarios", "list"}),
                AllOf(ContainsRegex("\noutage +faults "), ContainsRegex("\ndemo +state ")));
    EXPECT_EQ(shown({"scenarios", "apply", "outage"}), "applied outage\n");
    EXPECT_EQ(runConfigured({"watchlist", "list", "--no-retry"}).code, 1);
    shown({"faults", "clear"});
    EXPECT_EQ(failed({"scenarios", "apply", "five-profiles"}).code, 2) << "nobody can be asked";
    shown({"scenarios", "apply", "five-profiles", "--yes"});
    EXPECT_EQ(document({"status"}).integer("profiles"), 5);
    const auto unknown = failed({"scenarios", "apply", "outrage"});
    EXPECT_EQ(unknown.code, 6);
    EXPECT_THAT(unknown.errors, HasSubstr("did you mean \"outage\"?"));
}

TEST_F(ServiceCommand, AFaultActsAsItsFieldsSay) {
    outputOf({"bind"});
    shown({"faults", "add", "status", "status=503", "retryAfter=7", "count=1", "method=PUT",
           "name=once", "probability=1.0"});
    EXPECT_THAT(shown({"faults", "list"}),
                ContainsRegex("\n1 +once +status +method=PUT +1 +0\n1 entry"));
    EXPECT_EQ(runConfigured({"watchlist", "list", "--no-retry"}).code, 0) << "no PUT";
    EXPECT_EQ(runConfigured({"watchlist", "add", "v1", "--no-retry"}).code, 1);
    EXPECT_EQ(runConfigured({"watchlist", "add", "v1", "--no-retry"}).code, 0) << "only once";

    write(directory / "faults.json",
          R"({"faults":[{"action":{"kind":"malformed"}},{"action":{"kind":"refuse"}}]})");
    shown({"faults", "add", "--from", directory / "faults.json"});
    const auto count = [this] {
        return document({"faults", "list"}).dictionaries("faults").value().size();
    };
    const std::size_t before = count();
    shown({"faults", "clear", "2"});
    EXPECT_EQ(count(), before - 1);
    EXPECT_EQ(failed({"faults", "clear", "99"}).code, 6);
    EXPECT_EQ(shown({"faults", "clear"}), "ended all faults\n");
    EXPECT_EQ(count(), 0U);
}

TEST_F(ServiceCommand, AFaultThatIsNoneIsRefused) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"status", "satus=503"}, "did you mean \\\"status\\\"?"},
        {{"status", "status=many"}, "no number"},
        {{"status", "status"}, "NAME=VALUE"},
        {{"delay", "seed=1", "seed=2"}, "twice"},
        {{}, "not clear"},
        {{"status", "--from", "-"}, "not clear"},
    };
    for (const auto& [words, text] : cases) {
        std::vector<std::string> command{"faults", "add", "--json"};
        command.insert(command.end(), words.begin(), words.end());
        const auto result = failed(command);
        EXPECT_EQ(result.code, 2) << text;
        EXPECT_THAT(result.errors, HasSubstr(text));
    }
    EXPECT_EQ(failed({"faults", "add", "earthquake"}).code, 7) << "the service knows the kinds";
}

TEST_F(ServiceCommand, TheJournalIsListedCountedAndExported) {
    outputOf({"watchlist", "add", "v1"});
    outputOf({"watchlist", "list"});
    EXPECT_THAT(shown({"journal", "list", "method=PUT"}),
                AllOf(ContainsRegex("\n[0-9]+ +20[^\n]* +204 +PUT +/v1/watchlist/video"),
                      HasSubstr("1 entry of 1")));
    const std::string all = shown({"journal", "count"});
    EXPECT_EQ(shown({"journal", "count", "status=2xx"}), all);
    EXPECT_EQ(shown({"journal", "count", "item=v1", "method=PUT"}), "1\n");
    EXPECT_EQ(document({"journal", "list", "--limit", "1", "--oldest-first"})
                  .dictionaries("entries")
                  .value()
                  .begin()
                  ->integer("id"),
              1);
    EXPECT_THAT(shown({"journal", "show", "1"}),
                AllOf(StartsWith("> POST /v1/binds"), HasSubstr("\n< status 200\n"),
                      Not(HasSubstr("eyJ"))));
    EXPECT_THAT(shown({"journal", "export"}), StartsWith(R"({"log":{)"));
    EXPECT_EQ(failed({"journal", "show", "99"}).code, 6);
    EXPECT_EQ(failed({"journal", "list", "colour=red"}).code, 2);
    EXPECT_EQ(failed({"journal", "clear"}).code, 2) << "nobody can be asked";
    shown({"journal", "clear", "--yes"});
    EXPECT_EQ(shown({"journal", "count"}), "0\n");
}

TEST_F(ServiceCommand, WhatTheJournalShowsIsVerified) {
    outputOf({"watchlist", "add", "v1"});
    EXPECT_EQ(shown({"journal", "verify", "method=PUT", "item=v1", "--exactly", "1"}),
              "verified: 1, as expected\n");
    shown({"journal", "verify", "status=5xx", "--at-most", "0"});
    shown({"journal", "verify", "method=PUT"});
    const auto missed = failed({"journal", "verify", "method=PUT", "item=v2"});
    EXPECT_EQ(missed.code, 8);
    EXPECT_THAT(missed.output, AllOf(ContainsRegex("near miss: entry [0-9]+, PUT /v1/watchlist"),
                                     HasSubstr("  item: expected v2, was v1\n")));
    EXPECT_THAT(missed.errors, HasSubstr("expected at least 1, found 0"));
    const auto json = failed({"journal", "verify", "item=v2", "--json"});
    EXPECT_EQ(json.code, 8);
    EXPECT_THAT(json.output, HasSubstr(R"("satisfied":false)"));
    EXPECT_THAT(json.errors, HasSubstr(R"("exitCode":8)"));
    EXPECT_EQ(failed({"journal", "verify", "--exactly", "1", "--at-most", "2"}).code, 2);
}

TEST_F(ServiceCommand, WhatHasToComeIsWaitedFor) {
    outputOf({"watchlist", "add", "v1"});
    EXPECT_THAT(shown({"journal", "wait", "item=v1", "--timeout", "3600"}),
                ContainsRegex("satisfied +yes\n"));
    const auto never = failed({"journal", "wait", "item=v2", "--timeout", "0"});
    EXPECT_EQ(never.code, 8);
    EXPECT_THAT(never.errors, HasSubstr("expected 1, found 0 in time"));
    EXPECT_EQ(failed({"journal", "wait", "--timeout", "soon"}).code, 2);
}

TEST_F(ServiceCommand, SnapshotsAreTakenRestoredAndDeleted) {
    outputOf({"watchlist", "add", "v1"});
    EXPECT_EQ(shown({"snapshots", "take", "with v1"}), "taken\n");
    EXPECT_THAT(shown({"snapshots", "list"}), HasSubstr("with v1"));
    outputOf({"watchlist", "clear", "--yes"});
    EXPECT_EQ(failed({"snapshots", "restore", "with v1"}).code, 2) << "nobody can be asked";
    shown({"snapshots", "restore", "with v1", "--yes"});
    EXPECT_THAT(outputOf({"watchlist", "list"}), HasSubstr("v1"));
    shown({"snapshots", "delete", "with v1", "--yes"});
    EXPECT_EQ(failed({"snapshots", "restore", "with v1", "--yes"}).code, 6);
}

TEST_F(ServiceCommand, ResetMakesEverythingAsItWas) {
    outputOf({"watchlist", "add", "v1"});
    shown({"faults", "add", "delay", "milliseconds=0"});
    EXPECT_EQ(failed({"reset"}).code, 2) << "nobody can be asked";
    shown({"reset", "--yes"});
    EXPECT_EQ(document({"status"}).integer("faults"), 0);
    EXPECT_THAT(outputOf({"watchlist", "list"}), HasSubstr("0 entries"));
}

TEST_F(ServiceCommand, AProfileIsShownWithItsSearchesBlockedAndUnblocked) {
    outputOf({"search", "add", "northern lights"});
    EXPECT_THAT(shown({"profile", "parent"}),
                AllOf(ContainsRegex("\nusername +Parent\n"),
                      ContainsRegex("\nsearches +northern lights +")));
    EXPECT_EQ(shown({"block", "parent"}), "blocked parent\n");
    EXPECT_EQ(runConfigured({"watchlist", "list"}).code, 4);
    shown({"unblock", "parent"});
    EXPECT_EQ(runConfigured({"watchlist", "list"}).code, 0);
    EXPECT_EQ(failed({"profile", "nobody"}).code, 6);
    EXPECT_EQ(failed({"block", "parent", "--household", "other"}).code, 6);
}

TEST_F(ServiceCommand, ATokenIsTheOnlyThingThatIsPrinted) {
    const auto result = failed({"token", "parent", "--expires-in", "-60"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_THAT(result.output, testing::MatchesRegex("[A-Za-z0-9._-]+\n"));
    EXPECT_THAT(result.errors, StartsWith("expires at 20"));
    EXPECT_TRUE(document({"token", "parent"}).text("token"));
}

TEST_F(ServiceCommand, TheClockIsSetFrozenAndMoved) {
    shown({"clock", "freeze"});
    EXPECT_THAT(shown({"clock", "set", "2030-01-01T00:00:00Z"}),
                HasSubstr("2030-01-01T00:00:00.000Z"));
    EXPECT_THAT(shown({"clock", "advance", "-60"}), HasSubstr("2029-12-31T23:59:00.000Z"));
    EXPECT_THAT(shown({"clock", "show"}), ContainsRegex("frozen +yes"));
    EXPECT_THAT(shown({"clock", "run"}), ContainsRegex("frozen +no"));
    EXPECT_EQ(failed({"clock", "advance", "far"}).code, 2);
}

TEST_F(ServiceCommand, NamespacesAreWorldsOfTheirOwn) {
    shown({"namespaces", "add", "run-7"});
    EXPECT_THAT(shown({"namespaces", "list"}), HasSubstr("/n/run-7"));
    shown({"faults", "add", "malformed", "--namespace", "run-7"});
    EXPECT_EQ(document({"status"}).integer("faults"), 0);
    EXPECT_EQ(document({"status", "--namespace", "run-7"}).integer("faults"), 1);

    // A configuration for the namespace leads there, and the namespaces are the root's all the
    // same.
    write(directory / "run-7.json", shown({"configuration", "--namespace", "run-7"}));
    configuration = directory / "run-7.json";
    EXPECT_EQ(document({"status"}).text("namespace"), "run-7");
    EXPECT_EQ(failed({"namespaces", "delete", "run-7"}).code, 2) << "nobody can be asked";
    shown({"namespaces", "delete", "run-7", "--yes"});
    EXPECT_EQ(failed({"status"}).code, 6);
}

TEST_F(ServiceCommand, ADryRunChangesNothing) {
    const std::string output = shown({"faults", "add", "malformed", "--dry-run"});
    EXPECT_THAT(output, AllOf(StartsWith("curl "), HasSubstr("/admin/v1/faults")));
    EXPECT_THAT(shown({"reset", "--dry-run"}), HasSubstr("/admin/v1/reset"));
    EXPECT_EQ(document({"status"}).integer("faults"), 0);
}

TEST_F(ServiceCommand, ThePageNamesEveryCommand) {
    const std::string page = contentOf(KESTRIN_SOURCE "/docs/cli.md");
    const std::string script = run({"completion", "fish"}).output;
    const std::regex command(R"(__kestrin_profile_at \\' service ([a-z ]+)\\')");
    std::size_t count = 0;
    for (std::sregex_iterator each(script.begin(), script.end(), command), end; each != end;
         ++each) {
        EXPECT_THAT(page, ContainsRegex("service " + std::string((*each)[1]) + "[ \n]"));
        ++count;
    }
    EXPECT_GT(count, 30U);
}

}  // namespace
