#include <kestrin-profile-server/JSONText.hpp>

namespace KestrinProfileServer {
namespace {

void appendEscaped(std::string& json, unsigned char character) {
    constexpr std::string_view digits = "0123456789abcdef";
    json += "\\u00";
    json.push_back(digits[character >> 4]);
    json.push_back(digits[character & 0xF]);
}

}  // namespace

void appendJSONText(std::string& json, std::string_view text) {
    json.push_back('"');
    for (const char character : text) {
        if (static_cast<unsigned char>(character) < 0x20) {
            appendEscaped(json, static_cast<unsigned char>(character));
            continue;
        }
        if (character == '"' || character == '\\') json.push_back('\\');
        json.push_back(character);
    }
    json.push_back('"');
}

std::string jsonText(std::string_view text) {
    std::string json;
    appendJSONText(json, text);
    return json;
}

}  // namespace KestrinProfileServer
