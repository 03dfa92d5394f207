#include <algorithm>
#include <array>

#include <boost/json.hpp>

#include <kestrin-profile-server/admin/RouteTables.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/state/Scenarios.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

Reply getScenarios(const AdminContext&) {
    json::array scenarios;
    for (const FaultScenario& each : faultScenarios()) {
        scenarios.push_back(
            {{"name", each.name}, {"kind", "faults"}, {"description", each.description}});
    }
    for (const StateScenario& each : stateScenarios()) {
        scenarios.push_back(
            {{"name", each.name}, {"kind", "state"}, {"description", each.description}});
    }
    return jsonReply(200, {{"scenarios", std::move(scenarios)}});
}

std::string allNames() {
    std::string names;
    for (const FaultScenario& each : faultScenarios())
        names += (names.empty() ? "" : ", ") + std::string(each.name);
    for (const StateScenario& each : stateScenarios())
        names += (names.empty() ? "" : ", ") + std::string(each.name);
    return names;
}

Reply postScenario(const AdminContext& context) {
    const std::string& name = context.call.segments.at(0);
    if (setFaultScenario(context, name)) return jsonReply(200, {{"applied", name}});
    const auto found = std::ranges::find(stateScenarios(), name, &StateScenario::name);
    if (found == stateScenarios().end()) {
        throw Problem(ProblemKind::unknownItem, "there is no scenario '" + excerptOf(name) +
                                                    "'; expected is one of " + allNames());
    }
    context.afterCommit(context.space.replaceState(
        context.connection(), found->seed({context.facts.brand, context.space.clock().now()},
                                          context.space.limits().configured().maxListSize)));
    return jsonReply(200, {{"applied", name}});
}

constexpr std::array scenarioTable{
    AdminRoute{"GET", "/admin/v1/scenarios", "The ready scenarios", AdminEffect::none,
               getScenarios},
    AdminRoute{"POST", "/admin/v1/scenarios/{name}", "Apply a scenario", AdminEffect::write,
               postScenario},
};

}  // namespace

std::span<const AdminRoute> scenarioRoutes() {
    return scenarioTable;
}

}  // namespace KestrinProfileServer
