#pragma once

#include <memory>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>

namespace KestrinHousehold::internal {

/// The service of an operation as it is configured now, with what keeps it alive; null: there is
/// none.
[[nodiscard]] std::shared_ptr<const KestrinConfigManager::WebService> configuredService(
    KestrinProfile::ProfileOperation operation);

/// The replies to a request that `Profile` does not make: of a record, to the service of an
/// operation, with the guard of that and the reaction to a refusal as there.
[[nodiscard]] HalvardSling::Observable<HalvardSling::Response> responsesOf(
    KestrinProfile::ProfileOperation operation, const KestrinConfigManager::APIParams& params);

}  // namespace KestrinHousehold::internal
