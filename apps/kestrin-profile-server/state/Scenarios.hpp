#pragma once

#include <span>
#include <string_view>

#include <kestrin-profile-server/state/Seed.hpp>

namespace KestrinProfileServer {

/// A ready state, which replaces what there is.
struct StateScenario {
    std::string_view name;
    /// What it is good for, in a few words without a full stop.
    std::string_view description;
    /// @param maxSize  how many entries a list may have
    Seed (*seed)(const SeedDefaults& defaults, std::size_t maxSize);
};

[[nodiscard]] std::span<const StateScenario> stateScenarios();

/// The household that all of them have, with its parent profile "parent".
constexpr std::string_view scenarioHousehold = "demo";

/// A household as people have it: three profiles who have watched, liked and searched for
/// something.
[[nodiscard]] Seed demoSeed(const SeedDefaults& defaults);

}  // namespace KestrinProfileServer
