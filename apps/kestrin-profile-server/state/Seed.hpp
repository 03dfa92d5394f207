#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <kestrin-profile-server/domain/Lists.hpp>
#include <kestrin-profile-server/domain/Profiles.hpp>
#include <kestrin-profile-server/domain/Timestamp.hpp>

namespace KestrinProfileServer {

constexpr std::size_t listKinds = 4;

/// An entry of one of a profile's lists.
struct SeedEntry {
    std::string brand;
    Entry entry;
};

/// A profile with its lists, each newest first.
struct SeedProfile {
    /// Without rows of the database.
    Profile profile;
    bool isBlocked = false;
    std::array<std::vector<SeedEntry>, listKinds> lists;

    [[nodiscard]] std::vector<SeedEntry>& listOf(ListKind kind) {
        return lists[static_cast<std::size_t>(kind)];
    }
};

struct SeedHousehold {
    std::string id;
    /// Absent: the one that the household of this name has, or a random one.
    std::optional<std::string> secret;
    /// Absent: a profile "parent" if the household is new.
    std::optional<SeedProfile> parent;
    std::vector<SeedProfile> profiles;
    /// Who is blocked without being a profile.
    std::vector<std::string> blocked;
};

/// All that a namespace holds, or what is to be added to it.
struct Seed {
    std::vector<SeedHousehold> households;
    /// How many entries a list may have; absent: as many as the service was started with.
    std::optional<std::size_t> maxSize;
};

/// What a seed leaves out.
struct SeedDefaults {
    std::string brand = "kestrin";
    Milliseconds now = 0;
};

/// The seed that a JSON document describes; throws the problem that names the first fault.
[[nodiscard]] Seed seedIn(const boost::json::value& document, const SeedDefaults& defaults);

enum class Secrets { told, untold };

/// The document that describes the seed.
[[nodiscard]] boost::json::object seedJSON(const Seed& seed, Secrets secrets);

/// The part of it that describes a profile.
[[nodiscard]] boost::json::object seedJSON(const SeedProfile& profile);

}  // namespace KestrinProfileServer
