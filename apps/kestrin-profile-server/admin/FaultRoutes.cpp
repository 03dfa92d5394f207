#include <algorithm>
#include <array>

#include <boost/json.hpp>

#include <internal/Number.hpp>
#include <kestrin-profile-server/admin/RouteTables.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

Faults& faultsOf(const AdminContext& context) {
    return context.space.observation().faults();
}

json::object faultsJSON(const AdminContext& context) {
    return {{"faults", faultsOf(context).all()}};
}

void tellListeners(const AdminContext& context) {
    Events& events = context.space.observation().events();
    if (events.hasListeners()) events.publish("faults", json::serialize(faultsJSON(context)));
}

Reply listFaults(const AdminContext& context) {
    return jsonReply(200, faultsJSON(context));
}

Reply addFaults(const AdminContext& context) {
    const json::value& body = context.call.requiredBody();
    json::array added = faultsOf(context).add(body);
    tellListeners(context);
    const bool isOne = !body.as_object().contains("faults");
    return jsonReply(201, isOne ? std::move(added.front().as_object())
                                : json::object{{"faults", std::move(added)}});
}

Reply clearFaults(const AdminContext& context) {
    faultsOf(context).clear();
    tellListeners(context);
    return {};
}

Reply removeFault(const AdminContext& context) {
    const std::string& text = context.call.segments.front();
    const auto id = KestrinInternal::decimalNumber(text);
    if (!id || !faultsOf(context).remove(*id))
        throw Problem(ProblemKind::unknownItem, "there is no fault '" + excerptOf(text) + "'");
    tellListeners(context);
    return {};
}

constexpr std::array faultTable{
    AdminRoute{"GET", "/admin/v1/faults", "The faults that are set", AdminEffect::none, listFaults},
    AdminRoute{"POST", "/admin/v1/faults", "Sets one fault more, or several", AdminEffect::none,
               addFaults},
    AdminRoute{"DELETE", "/admin/v1/faults", "Ends all faults", AdminEffect::none, clearFaults},
    AdminRoute{"DELETE", "/admin/v1/faults/{id}", "Ends one fault", AdminEffect::none, removeFault},
};

}  // namespace

std::span<const AdminRoute> faultRoutes() {
    return faultTable;
}

bool setFaultScenario(const AdminContext& context, std::string_view name) {
    const auto scenarios = faultScenarios();
    const auto found = std::ranges::find(scenarios, name, &FaultScenario::name);
    if (found == scenarios.end()) return false;
    faultsOf(context).clear();
    static_cast<void>(faultsOf(context).add(json::parse(found->faults)));
    tellListeners(context);
    return true;
}

}  // namespace KestrinProfileServer
