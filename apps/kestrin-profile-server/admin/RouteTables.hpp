#pragma once

#include <span>

#include <kestrin-profile-server/admin/AdminRoutes.hpp>

namespace KestrinProfileServer {

// The routes of the admin interface's parts, each beside its handlers.

/// What the service is and has.
[[nodiscard]] std::span<const AdminRoute> statusRoutes();

/// What it holds: households, profiles, blocks, tokens, snapshots.
[[nodiscard]] std::span<const AdminRoute> stateRoutes();

/// Ready situations.
[[nodiscard]] std::span<const AdminRoute> scenarioRoutes();

/// The time.
[[nodiscard]] std::span<const AdminRoute> clockRoutes();

/// The worlds beside each other, and how clients reach them.
[[nodiscard]] std::span<const AdminRoute> namespaceRoutes();

/// The page that shows all this.
[[nodiscard]] std::span<const AdminRoute> inspectorRoutes();

/// What was asked and answered.
[[nodiscard]] std::span<const AdminRoute> journalRoutes();

/// What goes wrong on purpose.
[[nodiscard]] std::span<const AdminRoute> faultRoutes();

/// Puts the faults of a ready scenario in the place of those that are set.
/// @return false if there is no such scenario
bool setFaultScenario(const AdminContext& context, std::string_view name);

/// What happens, as it happens.
[[nodiscard]] std::span<const AdminRoute> eventRoutes();

}  // namespace KestrinProfileServer
