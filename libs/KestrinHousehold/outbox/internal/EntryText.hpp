#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <KestrinHousehold/outbox/OutboxEntry.hpp>

namespace KestrinHousehold::internal {

/// An entry without its number as one JSON text. What one version writes, every later one reads.
[[nodiscard]] std::string textOf(const OutboxEntry& entry);

/// The entry in such a text; absent if it is none.
[[nodiscard]] std::optional<OutboxEntry> entryIn(std::string_view text);

/// What tells a damaged text from the one that was written: FNV-1a with 64 bits.
/// http://www.isthe.com/chongo/tech/comp/fnv/
[[nodiscard]] std::int64_t checksumOf(std::int64_t number, std::string_view text);

}  // namespace KestrinHousehold::internal
