// docs/service.md beside the program.
#include <regex>
#include <set>
#include <string>

#include <gmock/gmock.h>

#include <kestrin-profile-server/admin/RouteTables.hpp>
#include <kestrin-profile-server/state/Scenarios.hpp>

#include "Support.hpp"

namespace KestrinProfileServer::Testing {
namespace {

using testing::HasSubstr;

std::string page() {
    return TestSupport::contentOf(KESTRIN_SERVICE_PAGE);
}

/// Everything that the first group of an expression matches.
std::set<std::string> allIn(const std::string& text, const std::string& expression) {
    std::set<std::string> all;
    const std::regex pattern(expression);
    for (std::sregex_iterator each(text.begin(), text.end(), pattern), end; each != end; ++each)
        all.insert((*each)[1]);
    return all;
}

TEST(ServicePageTest, hasEveryRouteOfStateClockAndNamespaces) {
    for (const auto table :
         {statusRoutes(), stateRoutes(), scenarioRoutes(), clockRoutes(), namespaceRoutes()}) {
        for (const AdminRoute& route : table) {
            EXPECT_THAT(page(), HasSubstr("\n| `" + std::string(route.method) + " " +
                                          std::string(route.path) + "` | "));
        }
    }
}

TEST(ServicePageTest, hasEveryOptionAndNoOther) {
    auto program = startServer({"--help"});
    ASSERT_EQ(program.wait(), 0);
    const std::string help = program.output();
    auto options = allIn(help.substr(0, help.find("Examples:")), "(--[a-z-]+)");
    const std::string text = page();
    for (const std::string& option : options)
        EXPECT_THAT(text, HasSubstr(option));
    for (const std::string& option : allIn(text, "`(--[a-z-]+)[ `]"))
        EXPECT_TRUE(options.contains(option)) << option;
}

TEST(ServicePageTest, hasEveryScenarioOfStates) {
    for (const StateScenario& scenario : stateScenarios())
        EXPECT_THAT(page(), HasSubstr("\n| `" + std::string(scenario.name) + "` | "));
}

TEST(ServicePageTest, showsASeedThatIsOne) {
    const std::string text = page();
    const std::size_t begin = text.find("```json\n", text.find("## Seeds")) + 8;
    TestService service(withAdmin);
    AdminClient admin(service.baseURL());
    const auto reply =
        admin.call("PUT", "state", text.substr(begin, text.find("```", begin) - begin));
    EXPECT_EQ(outcomeOf(reply), "204") << reply.body;
    EXPECT_EQ(admin.get("profiles/kid").at("history").as_array().size(), 2U);
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
