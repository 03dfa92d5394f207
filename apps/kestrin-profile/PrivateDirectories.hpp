#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace KestrinProfileCLI {

/// Makes the directories of a path as far as they are missing, each of them for this user alone
/// (mode 0700).
/// @param base   absolute; the user's, so its links are followed and what is there stays as it is
/// @param below  relative to it; the program's own: no link is followed, nobody else's directory is
///               used, and what others can do with one that is there is taken from them
/// @return why the path cannot be used; absent if it can
[[nodiscard]] std::optional<std::string> makePrivateDirectories(const std::filesystem::path& base,
                                                                const std::filesystem::path& below);

}  // namespace KestrinProfileCLI
