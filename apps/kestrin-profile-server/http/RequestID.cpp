#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>

#include <internal/ASCII.hpp>
#include <internal/Hex.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>
#include <kestrin-profile-server/http/RequestID.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::size_t longestID = 64;
constexpr std::size_t randomPart = 8;

bool isRequestID(std::string_view text) {
    return !text.empty() && text.size() <= longestID && std::ranges::all_of(text, [](char each) {
        return KestrinInternal::isDigit(each) || KestrinInternal::isLetter(each) ||
               std::string_view("._-").find(each) != std::string_view::npos;
    });
}

/// A random number for this process, and one that counts: no two are the same.
std::string newRequestID() {
    static const std::string process = hexadecimal(randomBytes(randomPart));
    static std::atomic<std::uint64_t> count = 0;
    std::string id = process;
    const std::uint64_t number = ++count;
    for (unsigned shift = 64; shift > 0; shift -= 8)
        KestrinInternal::appendHex(id, static_cast<char>(number >> (shift - 8) & 0xFFU),
                                   KestrinInternal::lowerHexDigits);
    return id;
}

}  // namespace

std::string requestIDOf(const HeaderLines& headers) {
    const auto found = std::ranges::find_if(headers, [](const auto& header) {
        return KestrinInternal::equalsIgnoringCase(header.first, requestIDHeader);
    });
    return found != headers.end() && isRequestID(found->second) ? found->second : newRequestID();
}

}  // namespace KestrinProfileServer
