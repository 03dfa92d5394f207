#include <KestrinProfile/model/internal/DebugText.hpp>
#include <internal/ASCII.hpp>
#include <internal/Hex.hpp>

namespace KestrinProfile::internal {

namespace {

void appendEscaped(std::string& out, char c) {
    static constexpr std::string_view special("\0\t\n\r\"'\\", 7);
    static constexpr std::string_view names = "0tnr\"'\\";
    if (const auto at = special.find(c); at != std::string_view::npos) {
        (out += '\\') += names[at];
    } else if (KestrinInternal::isControlOrBlank(c) && c != ' ') {
        KestrinInternal::appendHex(out += "\\u{", c, KestrinInternal::upperHexDigits);
        out += '}';
    } else {
        out += c;
    }
}

}  // namespace

std::string debugText(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2);
    out += '"';
    for (const char c : text)
        appendEscaped(out, c);
    out += '"';
    return out;
}

std::string debugText(std::int64_t integer) {
    return std::to_string(integer);
}

std::string debugText(Date date) {
    // "2017-03-09T18:25:43.511Z", where the year may have more digits.
    const std::string text = DateFormatter::iso8601().text(date);
    const std::size_t separator = text.size() - 14;
    return text.substr(0, separator) + " " + text.substr(separator + 1, 8) + " +0000";
}

}  // namespace KestrinProfile::internal
