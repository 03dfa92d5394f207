#include <internal/Hex.hpp>
#include <kestrin-profile-server/domain/JSONText.hpp>

namespace KestrinProfileServer {

void appendJSONText(std::string& json, std::string_view text) {
    json.push_back('"');
    for (const char character : text) {
        if (static_cast<unsigned char>(character) < 0x20) {
            json += "\\u00";
            KestrinInternal::appendHex(json, character, KestrinInternal::lowerHexDigits);
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
