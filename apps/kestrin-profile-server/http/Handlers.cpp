#include <array>

#include <boost/json.hpp>

#include <internal/Table.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Handlers.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

const Reply noContent{};

ListAddress listOf(const HandlerContext& context) {
    return ListAddress{context.authorised.addressed.row, context.route.list,
                       context.query[ParameterRole::brand]};
}

ProfileChange changeIn(const Body& body) {
    return ProfileChange{body.text("username"), body.text("avatar"), body.text("group"),
                         body.boolean("default")};
}

void checkEntryID(const std::string& id) {
    if (!id.empty()) return;
    throw Problem(ProblemKind::invalidEntry,
                  "the entry's identifier is empty; an entry needs at least one byte");
}

void checkBindBody(const HandlerContext& context) {
    const std::string inBody = context.body.text("profileId").value_or("");
    const std::string& inQuery = context.query[ParameterRole::profile];
    if (inBody == inQuery) return;
    throw Problem(ProblemKind::invalidBody, "the body.profileId is '" + excerptOf(inBody) +
                                                "'; expected is the profile of the query, '" +
                                                excerptOf(inQuery) + "'");
}

Reply bindAnonymously(const HandlerContext& context) {
    checkBindBody(context);
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access): the route is open to households alone.
    const Household& household = *context.authorised.household;
    const std::string& profileID = context.query[ParameterRole::profile];
    if (isBlocked(context.connection, household.row, profileID))
        throw Problem(ProblemKind::profileBlocked, "the profile is blocked; it obtains no bind");
    if (!findProfile(context.connection, household.row, profileID)) {
        throw Problem(ProblemKind::unknownProfile,
                      "the household has no profile '" + excerptOf(profileID) + "'");
    }
    return jsonReply(
        200,
        {{"profileId", profileID},
         {"token",
          context.tokens.issue({profileID, household.name}, context.tokens.lifetime(), context.now)
              .text}});
}

Reply validateName(const HandlerContext& context) {
    const Profile& addressed = context.authorised.addressed;
    const std::string name = checkedUsername(context.connection, addressed.household,
                                             context.query[ParameterRole::name], addressed.row);
    return jsonReply(200, {{"valid", true}, {"username", name}});
}

Reply createProfile(const HandlerContext& context) {
    const ProfileChange wanted = changeIn(context.body);
    if (!wanted.username) {
        throw Problem(ProblemKind::invalidName,
                      "the body lacks the key 'username'; a new profile needs a name");
    }
    const Profile created = createProfile(context.connection, context.authorised.caller.household,
                                          wanted, context.limits.maxProfiles);
    Reply reply = jsonReply(201, profileJSON(created));
    // Beside the path of the request, whatever stands in front of it.
    reply.headers.emplace_back("Location", "profile?target=" + created.id + "&v=1");
    return reply;
}

Reply getProfiles(const HandlerContext& context) {
    boost::json::array profiles;
    for (const Profile& each : profilesOf(context.connection, context.authorised.caller.household))
        profiles.push_back(profileJSON(each));
    return jsonReply(200, {{"data", std::move(profiles)}});
}

Reply editProfile(const HandlerContext& context) {
    const Profile edited =
        editProfile(context.connection, context.authorised.addressed, changeIn(context.body));
    return jsonReply(200, profileJSON(edited));
}

Reply deleteProfile(const HandlerContext& context) {
    deleteProfile(context.connection, context.authorised.addressed);
    return noContent;
}

Reply getList(const HandlerContext& context) {
    const std::size_t maxSize = context.limits.maxListSize;
    return jsonReply(200, listJSON(context.route.list, maxSize,
                                   entriesOf(context.connection, listOf(context), maxSize)));
}

Reply getEntry(const HandlerContext& context) {
    std::vector<Entry> found;
    if (auto entry =
            findEntry(context.connection, listOf(context), context.query[ParameterRole::item])) {
        found.push_back(*std::move(entry));
    }
    return jsonReply(200, listJSON(context.route.list, context.limits.maxListSize, found));
}

Reply addEntry(const HandlerContext& context) {
    const std::string& id = context.query[ParameterRole::item];
    checkEntryID(id);
    putInFront(context.connection, listOf(context),
               Entry{id, context.body.text("type"), context.body.decimalText("progress"),
                     context.body.truthText("isCompleted"), context.now},
               context.limits.maxListSize);
    return noContent;
}

Reply addEntries(const HandlerContext& context) {
    putInFront(context.connection, listOf(context), context.body.elements(), context.now,
               context.limits.maxListSize);
    return noContent;
}

Reply deleteEntry(const HandlerContext& context) {
    deleteEntry(context.connection, listOf(context), context.query[ParameterRole::item]);
    return noContent;
}

Reply clearList(const HandlerContext& context) {
    clearList(context.connection, listOf(context));
    return noContent;
}

struct HandlerRow {
    Action action;
    Reply (*handler)(const HandlerContext&);
};

constexpr std::array<HandlerRow, 12> handlerTable{{
    {Action::bindAnonymously, bindAnonymously},
    {Action::validateName, validateName},
    {Action::createProfile, createProfile},
    {Action::getProfiles, getProfiles},
    {Action::editProfile, editProfile},
    {Action::deleteProfile, deleteProfile},
    {Action::getList, getList},
    {Action::getEntry, getEntry},
    {Action::addEntry, addEntry},
    {Action::addEntries, addEntries},
    {Action::deleteEntry, deleteEntry},
    {Action::clearList, clearList},
}};

static_assert(KestrinInternal::isInOrder(handlerTable, &HandlerRow::action));

}  // namespace

Reply runAction(const HandlerContext& context) {
    return KestrinInternal::rowOf(handlerTable, context.route.action).handler(context);
}

}  // namespace KestrinProfileServer
