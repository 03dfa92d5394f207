#include "support/HTTP2Connection.hpp"

namespace TestSupport {

namespace {

constexpr std::string_view preface = "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n";
constexpr std::size_t headSize = 9;

enum Type : std::uint8_t { dataType = 0, headersType = 1, settingsType = 4 };
enum Flag : std::uint8_t { noFlag = 0, ackFlag = 1, endStreamFlag = 1, endHeadersFlag = 4 };

/// The lowest bytes of a number, the highest of them first.
std::string bigEndian(std::uint32_t number, int bytes) {
    std::string result;
    for (int i = bytes - 1; i >= 0; --i)
        result += static_cast<char>((number >> (8 * i)) & 0xFF);
    return result;
}

std::uint32_t numberOf(std::string_view bytes) {
    std::uint32_t result = 0;
    for (const char each : bytes)
        result = result << 8 | static_cast<unsigned char>(each);
    return result;
}

}  // namespace

HTTP2Connection::HTTP2Connection(RawConnection& connection) : connection_(connection) {
    static_cast<void>(connection_.read(preface.size()));
    send(frame(settingsType, noFlag, 0, ""));
}

std::optional<std::uint32_t> HTTP2Connection::readRequest() {
    while (const auto head = connection_.read(headSize)) {
        const std::string_view fields(*head);
        if (!connection_.read(numberOf(fields.substr(0, 3)))) return std::nullopt;
        const auto type = static_cast<Type>(fields[3]);
        if (type == headersType) return numberOf(fields.substr(5));
        if (type == settingsType && fields[4] != ackFlag) send(frame(settingsType, ackFlag, 0, ""));
    }
    return std::nullopt;
}

bool HTTP2Connection::sendHead(std::uint32_t stream, std::size_t bodySize) {
    // HPACK, RFC 7541: entry 8 of the static table, and a text under the name of its entry 28.
    const std::string digits = std::to_string(bodySize);
    const std::string fields =
        std::string("\x88\x0F\x0D") + static_cast<char>(digits.size()) + digits;
    return send(frame(headersType, endHeadersFlag, stream, fields));
}

bool HTTP2Connection::sendHeadWithoutLength(std::uint32_t stream, std::string_view fields) {
    return send(frame(headersType, endHeadersFlag, stream, '\x88' + std::string(fields)));
}

std::string HTTP2Connection::field(std::string_view name, std::string_view value) {
    std::string result(1, '\0');  // a text under a name of its own
    for (const auto text : {name, value})
        result.append(1, static_cast<char>(text.size())).append(text);
    return result;
}

std::string HTTP2Connection::data(std::uint32_t stream, std::string_view bytes, Ends ends) {
    return frame(dataType, ends == Ends::yes ? endStreamFlag : noFlag, stream, bytes);
}

std::string HTTP2Connection::frame(std::uint8_t type, std::uint8_t flags, std::uint32_t stream,
                                   std::string_view payload) {
    std::string result = bigEndian(static_cast<std::uint32_t>(payload.size()), 3);
    result += static_cast<char>(type);
    result += static_cast<char>(flags);
    return result + number(stream) + std::string(payload);
}

std::string HTTP2Connection::number(std::uint32_t value) {
    return bigEndian(value, 4);
}

}  // namespace TestSupport
