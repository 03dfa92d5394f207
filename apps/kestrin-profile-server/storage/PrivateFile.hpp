#pragma once

#include <filesystem>
#include <string>

namespace KestrinProfileServer {

/// Writes a file that only its owner can read, in one step: a reader sees the former content or
/// the new one. Throws std::system_error when it cannot.
void replacePrivateFile(const std::filesystem::path& file, const std::string& content);

}  // namespace KestrinProfileServer
