#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

#include <KestrinProfile/Export.hpp>

namespace KestrinProfile {

/// The kinds of content that a list entry or a search can refer to. The ordinal of a case is its
/// position.
enum class Types {
    show,        ///< a series or programme
    video,       ///< one video
    game,        ///< a game
    collection,  ///< several of these together
    none,        ///< no kind
};

/// The wire form: "SHOW", "VIDEO", "GAME", "COLLECTION", and "none" in lower case, as the service
/// has it.
[[nodiscard]] KESTRIN_PROFILE_EXPORT std::string_view rawValue(Types type);

/// The kind with exactly this wire form; absent for any other text, another letter case included.
[[nodiscard]] KESTRIN_PROFILE_EXPORT std::optional<Types> types(std::string_view rawValue);

}  // namespace KestrinProfile

/// Kinds of content as keys.
template <>
struct std::hash<KestrinProfile::Types> {
    /// The ordinal of the case.
    [[nodiscard]] std::size_t operator()(KestrinProfile::Types value) const noexcept {
        return static_cast<std::size_t>(value);
    }
};
