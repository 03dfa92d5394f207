#include <algorithm>
#include <array>

#include <boost/json.hpp>

#include <kestrin-profile-server/ClientConfiguration.hpp>
#include <kestrin-profile-server/admin/RouteTables.hpp>
#include <kestrin-profile-server/domain/Members.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

constexpr std::array<std::string_view, 1> householdParameter{"household"};
constexpr std::array<std::string_view, 1> keyParameter{"key"};

json::object describe(const std::string& name, const std::string& baseURL) {
    return {{"name", name}, {"baseUrl", baseURL}};
}

Reply getNamespaces(const AdminContext& context) {
    json::array all{describe("", context.baseURL())};
    for (const std::string& name : context.namespaces.names())
        all.push_back(describe(name, context.facts.publicURL + Namespace::pathOf(name)));
    return jsonReply(200, {{"namespaces", std::move(all)}});
}

Reply postNamespace(const AdminContext& context) {
    Members members(context.call.requiredBody(), "the body");
    const std::string name = members.requiredText("name");
    const auto* const seed = members.value("seed");
    members.finish();
    std::optional<Seed> wanted;
    if (seed != nullptr) wanted = seedIn(*seed, {context.facts.brand, systemTime()});
    const auto created = context.namespaces.add(name, wanted);
    Reply reply = jsonReply(201, describe(name, context.facts.publicURL + created->path()));
    reply.headers.emplace_back("Location", created->path() + "/admin/v1/status");
    return reply;
}

Reply deleteNamespace(const AdminContext& context) {
    const std::string& name = context.call.segments.at(0);
    if (context.namespaces.remove(name)) return {};
    throw Problem(ProblemKind::unknownNamespace, "there is no namespace '" + excerptOf(name) + "'");
}

/// The named household, or the one that the namespace was made with, or else the first one.
Household householdFor(const AdminContext& context) {
    const auto wanted = context.call.parameter("household");
    const auto households = allHouseholds(context.connection());
    auto found = std::ranges::find(households, wanted.value_or(context.space.household().name),
                                   &Household::name);
    if (found == households.end() && !wanted) found = households.begin();
    if (found != households.end()) return *found;
    throw Problem(
        ProblemKind::unknownItem,
        wanted ? "there is no household '" + excerptOf(*wanted) + "'" : "there is no household");
}

Reply configurationOf(const AdminContext& context, const Household& household) {
    return Reply{200,
                 clientConfiguration(context.baseURL(), context.facts.brand, household),
                 "application/json",
                 {{"Cache-Control", "no-store"}}};
}

Reply getClientConfiguration(const AdminContext& context) {
    return configurationOf(context, householdFor(context));
}

Reply getInvitation(const AdminContext& context) {
    const std::string key = context.call.parameter("key").value_or("");
    const auto households = allHouseholds(context.connection());
    const auto found = std::ranges::find_if(
        households, [&](const Household& each) { return isInvitationKey(key, each); });
    if (found != households.end()) return configurationOf(context, *found);
    throw Problem(ProblemKind::unknownItem,
                  "no household has this key; the service shows the address with the right one if"
                  " it is started with --qr");
}

constexpr std::array namespaceTable{
    AdminRoute{"GET", "/admin/v1/client-configuration",
               "The configuration with which clients reach this namespace", AdminEffect::read,
               getClientConfiguration, householdParameter},
    AdminRoute{"GET", "/admin/v1/invitation",
               "The same configuration, for who was shown its address", AdminEffect::read,
               getInvitation, keyParameter, AdminAccess::anyone},
    AdminRoute{"GET",
               "/admin/v1/namespaces",
               "The namespaces, the root first",
               AdminEffect::none,
               getNamespaces,
               {},
               AdminAccess::caller,
               true},
    AdminRoute{"POST",
               "/admin/v1/namespaces",
               "Make a namespace",
               AdminEffect::none,
               postNamespace,
               {},
               AdminAccess::caller,
               true},
    AdminRoute{"DELETE",
               "/admin/v1/namespaces/{name}",
               "Delete a namespace with all that it has",
               AdminEffect::none,
               deleteNamespace,
               {},
               AdminAccess::caller,
               true},
};

}  // namespace

std::span<const AdminRoute> namespaceRoutes() {
    return namespaceTable;
}

}  // namespace KestrinProfileServer
