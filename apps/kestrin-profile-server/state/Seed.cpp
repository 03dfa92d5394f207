#include <set>
#include <utility>

#include <boost/json.hpp>

#include <internal/Number.hpp>
#include <internal/Table.hpp>
#include <kestrin-profile-server/domain/Members.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/state/Seed.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

constexpr std::int64_t largestListSize = 100'000;

struct ListRow {
    ListKind kind;
    /// The member of a profile that has the list.
    std::string_view name;
    /// The member of an entry that has its identifier.
    std::string_view id;
};

constexpr std::array<ListRow, listKinds> listTable{{
    {ListKind::history, "history", "videoId"},
    {ListKind::favorites, "favorites", "showId"},
    {ListKind::watchlist, "watchlist", "videoId"},
    {ListKind::searches, "searches", "term"},
}};
static_assert(KestrinInternal::isInOrder(listTable, &ListRow::kind));

std::string placeOf(const std::string& array, std::size_t index) {
    return array + "[" + std::to_string(index) + "]";
}

std::string requiredID(Members& members, std::string_view name) {
    std::string id = members.requiredText(name);
    if (id.empty()) members.refuse(name, "a text of at least one byte");
    return id;
}

SeedEntry entryIn(const json::value& value, const std::string& place, const ListRow& list,
                  const SeedDefaults& defaults) {
    Members members(value, place);
    SeedEntry seed;
    seed.entry.id = requiredID(members, list.id);
    seed.brand = members.text("brand").value_or(defaults.brand);
    seed.entry.type = members.text("type");
    seed.entry.added = members.time("autoAddTimestamp").value_or(defaults.now);
    if (list.kind == ListKind::history) {
        seed.entry.progress = members.integer("progress", 0, KestrinInternal::largestExactInteger);
        seed.entry.isCompleted = members.boolean("isCompleted");
    }
    members.finish();
    return seed;
}

std::vector<SeedEntry> entriesIn(Members& profile, const ListRow& list,
                                 const SeedDefaults& defaults) {
    std::vector<SeedEntry> entries;
    const auto* const array = profile.array(list.name);
    if (array == nullptr) return entries;
    std::set<std::pair<std::string, std::string>> known;
    for (const auto& each : *array) {
        const std::string place = placeOf(profile.placeOf(list.name), entries.size());
        entries.push_back(entryIn(each, place, list, defaults));
        const SeedEntry& added = entries.back();
        if (!known.emplace(added.brand, added.entry.id).second) {
            throw Problem(ProblemKind::invalidRequest,
                          place + " is there already; each entry is in a list once");
        }
    }
    return entries;
}

SeedProfile profileIn(const json::value& value, const std::string& place,
                      const SeedDefaults& defaults) {
    Members members(value, place);
    SeedProfile seed;
    seed.profile.id = members.text("profileId").value_or("");
    if (!seed.profile.id.empty() && !isProfileID(seed.profile.id))
        members.refuse("profileId", profileIDRule());
    seed.profile.username = members.requiredText("username");
    seed.profile.avatar = members.text("avatar");
    seed.profile.group = members.text("group");
    seed.profile.isDefault = members.boolean("default").value_or(false);
    seed.isBlocked = members.boolean("blocked").value_or(false);
    for (const ListRow& list : listTable)
        seed.listOf(list.kind) = entriesIn(members, list, defaults);
    members.finish();
    return seed;
}

std::vector<std::string> textsIn(Members& members, std::string_view name) {
    std::vector<std::string> texts;
    const auto* const array = members.array(name);
    if (array == nullptr) return texts;
    for (const auto& each : *array) {
        if (!each.is_string()) members.refuse(name, "an array of texts");
        texts.emplace_back(each.get_string());
    }
    return texts;
}

SeedHousehold householdIn(const json::value& value, const std::string& place,
                          const SeedDefaults& defaults) {
    Members members(value, place);
    SeedHousehold seed;
    seed.id = requiredID(members, "id");
    seed.secret = members.text("secret");
    if (const auto* const parent = members.value("parent"))
        seed.parent = profileIn(*parent, members.placeOf("parent"), defaults);
    if (const auto* const profiles = members.array("profiles")) {
        for (const auto& each : *profiles) {
            seed.profiles.push_back(profileIn(
                each, placeOf(members.placeOf("profiles"), seed.profiles.size()), defaults));
        }
    }
    seed.blocked = textsIn(members, "blocked");
    members.finish();
    return seed;
}

json::object entryJSON(const SeedEntry& seed, const ListRow& list) {
    json::object object;
    object[list.id] = seed.entry.id;
    object["brand"] = seed.brand;
    if (seed.entry.type) object["type"] = *seed.entry.type;
    if (seed.entry.progress) object["progress"] = *seed.entry.progress;
    if (seed.entry.isCompleted) object["isCompleted"] = *seed.entry.isCompleted;
    object["autoAddTimestamp"] = timestampText(seed.entry.added);
    return object;
}

json::object householdJSON(const SeedHousehold& seed, Secrets secrets) {
    json::object object{{"id", seed.id}};
    if (seed.secret && secrets == Secrets::told) object["secret"] = *seed.secret;
    if (seed.parent) object["parent"] = seedJSON(*seed.parent);
    json::array profiles;
    for (const auto& each : seed.profiles)
        profiles.push_back(seedJSON(each));
    object["profiles"] = std::move(profiles);
    if (!seed.blocked.empty())
        object["blocked"] = json::array(seed.blocked.begin(), seed.blocked.end());
    return object;
}

}  // namespace

Seed seedIn(const json::value& document, const SeedDefaults& defaults) {
    Members members(document, "the body");
    Seed seed;
    const auto* const households = members.array("households");
    if (households == nullptr) members.refuse("households", "an array");
    for (const auto& each : *households) {
        seed.households.push_back(householdIn(
            each, placeOf(members.placeOf("households"), seed.households.size()), defaults));
    }
    if (const auto size = members.integer("maxSize", 1, largestListSize))
        seed.maxSize = static_cast<std::size_t>(*size);
    members.finish();
    return seed;
}

json::object seedJSON(const SeedProfile& seed) {
    json::object object = profileJSON(seed.profile);
    if (seed.isBlocked) object["blocked"] = true;
    for (const ListRow& list : listTable) {
        json::array entries;
        for (const auto& each : KestrinInternal::rowOf(seed.lists, list.kind))
            entries.push_back(entryJSON(each, list));
        object[list.name] = std::move(entries);
    }
    return object;
}

json::object seedJSON(const Seed& seed, Secrets secrets) {
    json::array households;
    for (const auto& each : seed.households)
        households.push_back(householdJSON(each, secrets));
    json::object object{{"households", std::move(households)}};
    if (seed.maxSize) object["maxSize"] = *seed.maxSize;
    return object;
}

}  // namespace KestrinProfileServer
