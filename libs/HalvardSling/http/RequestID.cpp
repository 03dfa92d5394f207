#include <sys/random.h>
#include <unistd.h>

#include <HalvardSling/http/RequestID.hpp>
#include <internal/Hex.hpp>

namespace HalvardSling {

RequestID RequestID::random() noexcept {
    std::array<char, 16> bytes{};
    // It fails for more than 256 bytes only.
    static_cast<void>(::getentropy(bytes.data(), bytes.size()));
    RequestID id;
    auto* digit = id.digits_.begin();
    for (const char byte : bytes)
        for (const char each : KestrinInternal::hexDigits(byte, KestrinInternal::lowerHexDigits))
            *digit++ = each;
    return id;
}

}  // namespace HalvardSling
