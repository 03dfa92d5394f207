#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Fuzz {

/// What another parser makes of a JSON text.
struct ReferenceJSON {
    /// The text as a dictionary writes it: compact, numbers that are no integers as they stand, of
    /// equal keys the first. Absent: it is no JSON.
    std::optional<std::string> written;
    bool isDictionary = false;
    int depth = 0;
    /// It holds a number that the other parser cannot hold: nothing is known of the rest.
    bool isUnknown = false;
};

[[nodiscard]] ReferenceJSON referenceJSON(std::string_view text);

}  // namespace Fuzz
