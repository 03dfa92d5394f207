#pragma once

#include <memory>
#include <string>

#include <KestrinHousehold/outbox/OutboxStore.hpp>

namespace KestrinC::internal {

/// A store in a file.
/// @throws Refused  KESTRIN_NOT_AVAILABLE if the library was built without one
[[nodiscard]] std::shared_ptr<KestrinHousehold::OutboxStore> fileStore(const std::string& file);

}  // namespace KestrinC::internal
