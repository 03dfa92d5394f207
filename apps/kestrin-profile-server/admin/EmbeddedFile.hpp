#pragma once

#include <span>
#include <string_view>

namespace KestrinProfileServer {

/// A file that the program contains.
struct EmbeddedFile {
    std::string_view name;
    /// What an ETag header says of it (RFC 9110, 8.8.3).
    std::string_view entityTag;
    std::string_view content;
};

/// The files of the inspector's page.
[[nodiscard]] std::span<const EmbeddedFile> inspectorFiles();

}  // namespace KestrinProfileServer
