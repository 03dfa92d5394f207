#pragma once

#include <HalvardSling/rx/Sling.hpp>
#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/Export.hpp>
#include <KestrinConfigManager/WebService.hpp>

namespace KestrinConfigManager {

/// Builds the request of a record to a service: URL template filled, query appended, headers of
/// both, body as the service wants it. It never throws: what is wrong with the request arrives
/// through its response sequence. Sends nothing.
[[nodiscard]] KESTRIN_CONFIG_MANAGER_EXPORT HalvardSling::Sling build(const APIParams& params,
                                                                      const WebService& service);

}  // namespace KestrinConfigManager
