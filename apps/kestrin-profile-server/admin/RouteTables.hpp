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

}  // namespace KestrinProfileServer
