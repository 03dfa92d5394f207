#include <string>
#include <utility>

#include <kestrin-profile-server/state/Scenarios.hpp>

namespace KestrinProfileServer {
namespace {

constexpr Milliseconds minute = 60'000;
constexpr Milliseconds hour = 60 * minute;
constexpr Milliseconds day = 24 * hour;
constexpr std::size_t longHistory = 10'000;

SeedProfile profileNamed(std::string id, std::string username, std::string avatar,
                         std::string group) {
    SeedProfile seed;
    seed.profile.id = std::move(id);
    seed.profile.username = std::move(username);
    seed.profile.avatar = std::move(avatar);
    seed.profile.group = std::move(group);
    return seed;
}

SeedProfile parent() {
    SeedProfile seed = profileNamed("parent", "Parent", "owl", "adults");
    seed.profile.isDefault = true;
    return seed;
}

/// One household.
Seed seedOf(SeedProfile theParent, std::vector<SeedProfile> profiles) {
    SeedHousehold household;
    household.id = scenarioHousehold;
    household.parent = std::move(theParent);
    household.profiles = std::move(profiles);
    Seed seed;
    seed.households.push_back(std::move(household));
    return seed;
}

/// Adds entries behind those that a list has.
class Filling {
  public:
    Filling(SeedProfile& profile, const SeedDefaults& defaults)
        : profile_(profile), defaults_(defaults) {}

    Filling& watched(std::string id, std::int64_t progress, bool isCompleted, Milliseconds ago) {
        return add(ListKind::history, {std::move(id), "VIDEO", progress, isCompleted, before(ago)});
    }
    Filling& likes(std::string id, Milliseconds ago) {
        return add(ListKind::favorites, {std::move(id), "SHOW", {}, {}, before(ago)});
    }
    Filling& wants(std::string id, Milliseconds ago) {
        return add(ListKind::watchlist, {std::move(id), "VIDEO", {}, {}, before(ago)});
    }
    Filling& searched(std::string text, Milliseconds ago) {
        return add(ListKind::searches, {std::move(text), "TERM", {}, {}, before(ago)});
    }

  private:
    [[nodiscard]] Milliseconds before(Milliseconds ago) const { return defaults_.now - ago; }

    Filling& add(ListKind kind, Entry entry) {
        profile_.listOf(kind).push_back({defaults_.brand, std::move(entry)});
        return *this;
    }

    SeedProfile& profile_;
    const SeedDefaults& defaults_;
};

Seed empty(const SeedDefaults&, std::size_t) {
    return seedOf(parent(), {});
}

Seed fiveProfiles(const SeedDefaults&, std::size_t) {
    return seedOf(parent(), {profileNamed("anna", "Anna", "cat", "kids"),
                             profileNamed("ben", "Ben", "bear", "kids"),
                             profileNamed("carla", "Carla", "fox", "adults"),
                             profileNamed("dara", "Dara", "hedgehog", "adults")});
}

Seed longHistories(const SeedDefaults& defaults, std::size_t) {
    SeedProfile viewer = parent();
    Filling filling(viewer, defaults);
    for (std::size_t video = longHistory; video > 0; --video) {
        const auto ago = static_cast<Milliseconds>(longHistory - video) * 30 * minute;
        filling.watched("video-" + std::to_string(video), static_cast<std::int64_t>(video % 5400),
                        video % 3 == 0, ago);
    }
    Seed seed = seedOf(std::move(viewer), {});
    seed.maxSize = longHistory;
    return seed;
}

Seed blockedProfile(const SeedDefaults&, std::size_t) {
    SeedProfile blocked = profileNamed("blocked", "Blocked", "fox", "kids");
    blocked.isBlocked = true;
    return seedOf(parent(), {std::move(blocked), profileNamed("anna", "Anna", "cat", "kids")});
}

Seed fullList(const SeedDefaults& defaults, std::size_t maxSize) {
    SeedProfile viewer = parent();
    Filling filling(viewer, defaults);
    for (std::size_t index = maxSize; index > 0; --index) {
        const std::string number = std::to_string(index);
        const auto ago = static_cast<Milliseconds>(maxSize - index) * minute;
        filling.watched("video-" + number, 60, false, ago)
            .likes("show-" + number, ago)
            .wants("video-" + number, ago)
            .searched("search " + number, ago);
    }
    return seedOf(std::move(viewer), {});
}

Seed demo(const SeedDefaults& defaults, std::size_t) {
    return demoSeed(defaults);
}

constexpr std::array scenarioTable{
    StateScenario{"empty", "A household with nobody but its parent, and empty lists", empty},
    StateScenario{"five-profiles", "As many profiles as a household may have", fiveProfiles},
    StateScenario{"long-history", "10,000 videos in the parent's history, and room for them",
                  longHistories},
    StateScenario{"blocked-profile", "A profile 'blocked' whom the service refuses with 403",
                  blockedProfile},
    StateScenario{"full-list", "Four lists of the parent's with no room for another entry",
                  fullList},
    StateScenario{"demo", "Three people who have watched, liked and searched for something", demo},
};

}  // namespace

std::span<const StateScenario> stateScenarios() {
    return scenarioTable;
}

Seed demoSeed(const SeedDefaults& defaults) {
    SeedProfile adult = parent();
    Filling(adult, defaults)
        .watched("harbour-lights-s1e3", 1'260, false, 40 * minute)
        .watched("harbour-lights-s1e2", 2'880, true, day)
        .watched("the-long-ferry", 5'400, true, 3 * day)
        .likes("harbour-lights", day)
        .likes("night-trains-of-europe", 12 * day)
        .wants("a-winter-in-tromso", 2 * day)
        .searched("ferry", 3 * day)
        .searched("night trains", 12 * day);
    SeedProfile anna = profileNamed("anna", "Anna", "cat", "kids");
    Filling(anna, defaults)
        .watched("otter-school-s2e7", 300, false, 5 * hour)
        .watched("otter-school-s2e6", 660, true, 6 * hour)
        .likes("otter-school", 20 * day)
        .wants("the-paper-boat", 4 * day)
        .searched("otters", 20 * day);
    SeedProfile ben = profileNamed("ben", "Ben", "bear", "adults");
    Filling(ben, defaults)
        .watched("cooking-with-fire-s4e1", 0, false, 9 * day)
        .likes("cooking-with-fire", 9 * day)
        .searched("how to sharpen a knife", 9 * day);
    return seedOf(std::move(adult), {std::move(anna), std::move(ben)});
}

}  // namespace KestrinProfileServer
