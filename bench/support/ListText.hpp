#pragma once

#include <cstddef>
#include <string>

namespace Bench {

enum class KeyOrder {
    asWritten,  ///< the order in which the service writes an entry's keys
    shuffled,   ///< another order in each entry
};

/// The text of a list as the service sends it: so many entries of 120 bytes and more, each with a
/// timestamp. The same arguments give the same text.
[[nodiscard]] std::string listText(std::size_t entries, KeyOrder order = KeyOrder::asWritten);

}  // namespace Bench
