#pragma once

#include <string>
#include <string_view>

namespace KestrinProfileServer {

/// Appends `text` as a JSON string with its quotes.
void appendJSONText(std::string& json, std::string_view text);

/// `text` as a JSON string with its quotes.
[[nodiscard]] std::string jsonText(std::string_view text);

}  // namespace KestrinProfileServer
