#pragma once

#include <memory>

#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>

namespace KestrinHousehold::internal {

/// The service of an operation as it is configured now, with what keeps it alive; null: there is
/// none.
[[nodiscard]] std::shared_ptr<const KestrinConfigManager::WebService> configuredService(
    KestrinProfile::ProfileOperation operation);

}  // namespace KestrinHousehold::internal
