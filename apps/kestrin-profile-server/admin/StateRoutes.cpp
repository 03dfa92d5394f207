#include <algorithm>
#include <array>
#include <chrono>

#include <boost/json.hpp>

#include <kestrin-profile-server/admin/RouteTables.hpp>
#include <kestrin-profile-server/domain/Members.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/state/Scenarios.hpp>
#include <kestrin-profile-server/state/Snapshots.hpp>
#include <kestrin-profile-server/state/Storage.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

constexpr std::array<std::string_view, 1> householdParameter{"household"};

const Reply noContent{};

SeedDefaults defaultsOf(const AdminContext& context) {
    return {context.facts.brand, context.space.clock().now()};
}

Reply getState(const AdminContext& context) {
    return jsonReply(200, seedJSON(context.space.state(context.connection()), Secrets::untold));
}

Reply putState(const AdminContext& context) {
    context.afterCommit(context.space.replaceState(
        context.connection(), seedIn(context.call.requiredBody(), defaultsOf(context))));
    return noContent;
}

Reply postState(const AdminContext& context) {
    context.afterCommit(context.space.addState(
        context.connection(), seedIn(context.call.requiredBody(), defaultsOf(context))));
    return noContent;
}

Reply postReset(const AdminContext& context) {
    context.afterCommit(
        [&space = context.space, adopt = context.space.restoreStart(context.connection())] {
            adopt();
            space.clock().reset();
            space.observation().reset();
        });
    return noContent;
}

json::object countsOf(Connection& connection, std::int64_t profile) {
    json::object counts;
    for (std::size_t kind = 0; kind < listKinds; ++kind)
        counts[listID(static_cast<ListKind>(kind))] = 0;
    Query query(connection, "SELECT list, count(*) FROM entries WHERE profile = ? GROUP BY list",
                profile);
    while (query.next())
        counts[query.text(0)] = query.integer(1);
    return counts;
}

json::object overviewOf(Connection& connection, const Household& household) {
    json::array profiles;
    for (const Profile& each : profilesOf(connection, household.row)) {
        json::object profile = profileJSON(each);
        profile["blocked"] = isBlocked(connection, household.row, each.id);
        profile["counts"] = countsOf(connection, each.row);
        profiles.push_back(std::move(profile));
    }
    return {{"id", household.name},
            {"parentProfileId", household.parentProfileID},
            {"profiles", std::move(profiles)}};
}

Reply getHouseholds(const AdminContext& context) {
    json::array households;
    for (const Household& each : allHouseholds(context.connection()))
        households.push_back(overviewOf(context.connection(), each));
    return jsonReply(200, {{"households", std::move(households)}});
}

/// A household with the profile; throws the problem if there is none.
Household householdOf(const AdminContext& context, const std::string& profileID,
                      const std::optional<std::string>& householdName) {
    auto household = householdOfProfile(context.connection(), profileID, householdName);
    if (household) return *std::move(household);
    throw Problem(ProblemKind::unknownItem,
                  householdName ? "the household '" + excerptOf(*householdName) +
                                      "' has no profile '" + excerptOf(profileID) + "'"
                                : "no household has a profile '" + excerptOf(profileID) + "'");
}

Reply getProfile(const AdminContext& context) {
    const std::string& id = context.call.segments.at(0);
    const Household household = householdOf(context, id, context.call.parameter("household"));
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access): the household has it.
    const Profile profile = *findProfile(context.connection(), household.row, id);
    json::object document = seedJSON(storedProfile(context.connection(), profile));
    document["blocked"] = isBlocked(context.connection(), household.row, id);
    document["household"] = household.name;
    return jsonReply(200, document);
}

Reply putBlocked(const AdminContext& context) {
    Members members(context.call.requiredBody(), "the body");
    const bool blocked = members.requiredBoolean("blocked");
    members.finish();
    const std::string& id = context.call.segments.at(0);
    const Household household = householdOf(context, id, context.call.parameter("household"));
    setBlocked(context.connection(), household.row, id, blocked);
    return noContent;
}

Reply postToken(const AdminContext& context) {
    constexpr std::int64_t mostSeconds = std::int64_t{100} * 365 * 24 * 3600;
    Members members(context.call.requiredBody(), "the body");
    const std::string id = members.requiredText("profileId");
    const auto householdName = members.text("household");
    const auto expiresIn = members.integer("expiresInSeconds", -mostSeconds, mostSeconds);
    members.finish();
    const Household household = householdOf(context, id, householdName);
    const Tokens& tokens = context.space.tokens();
    const auto lifetime = expiresIn ? std::chrono::seconds(*expiresIn) : tokens.lifetime();
    const Token token = tokens.issue({id, household.name}, lifetime);
    return jsonReply(201,
                     {{"token", token.text}, {"expiresAt", timestampText(token.expires * 1000)}});
}

Reply getSnapshots(const AdminContext& context) {
    json::array all;
    for (const Snapshot& each : snapshots(context.connection()))
        all.push_back({{"name", each.name}, {"takenAt", timestampText(each.takenAt)}});
    return jsonReply(200, {{"snapshots", std::move(all)}});
}

Reply putSnapshot(const AdminContext& context) {
    takeSnapshot(context.connection(), {context.call.segments.at(0), context.space.clock().now()},
                 context.space.state(context.connection()));
    return noContent;
}

Problem unknownSnapshot(const std::string& name) {
    return {ProblemKind::unknownItem, "there is no snapshot '" + excerptOf(name) + "'"};
}

Reply restoreSnapshot(const AdminContext& context) {
    const std::string& name = context.call.segments.at(0);
    const auto state = snapshotNamed(context.connection(), name);
    if (!state) throw unknownSnapshot(name);
    context.afterCommit(context.space.replaceState(context.connection(), *state));
    return noContent;
}

Reply removeSnapshot(const AdminContext& context) {
    const std::string& name = context.call.segments.at(0);
    if (!deleteSnapshot(context.connection(), name)) throw unknownSnapshot(name);
    return noContent;
}

constexpr std::array stateTable{
    AdminRoute{"GET", "/admin/v1/state", "All households with their profiles and lists, as a seed",
               AdminEffect::read, getState},
    AdminRoute{"PUT", "/admin/v1/state", "Replace all households by those of a seed",
               AdminEffect::write, putState},
    AdminRoute{"POST", "/admin/v1/state", "Add what a seed describes", AdminEffect::write,
               postState},
    AdminRoute{"POST", "/admin/v1/reset", "Make everything as it was at the start",
               AdminEffect::write, postReset},
    AdminRoute{"GET", "/admin/v1/households", "The households with their profiles, in brief",
               AdminEffect::read, getHouseholds},
    AdminRoute{"GET", "/admin/v1/profiles/{profileId}", "A profile with its four lists",
               AdminEffect::read, getProfile, householdParameter},
    AdminRoute{"PUT", "/admin/v1/profiles/{profileId}/blocked", "Block a profile, or no longer",
               AdminEffect::write, putBlocked, householdParameter},
    AdminRoute{"POST", "/admin/v1/tokens", "A token for a profile, which may have expired already",
               AdminEffect::read, postToken},
    AdminRoute{"GET", "/admin/v1/snapshots", "The snapshots", AdminEffect::read, getSnapshots},
    AdminRoute{"PUT", "/admin/v1/snapshots/{name}", "Keep the state under a name",
               AdminEffect::write, putSnapshot},
    AdminRoute{"POST", "/admin/v1/snapshots/{name}/restore", "Replace the state by a snapshot's",
               AdminEffect::write, restoreSnapshot},
    AdminRoute{"DELETE", "/admin/v1/snapshots/{name}", "Forget a snapshot", AdminEffect::write,
               removeSnapshot},
};

}  // namespace

std::span<const AdminRoute> stateRoutes() {
    return stateTable;
}

}  // namespace KestrinProfileServer
