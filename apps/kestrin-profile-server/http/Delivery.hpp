#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

namespace KestrinProfileServer {

/// What a fault does to a reply on its way.
struct Delivery {
    enum class End {
        whole,        ///< all of it is sent
        reset,        ///< nothing is sent, and the connection is reset
        resetMiddle,  ///< half of it is sent, then the connection is reset
        cut,          ///< less than all is sent, then the connection is closed in good order
    };

    std::chrono::milliseconds delay{0};         ///< before the first byte
    std::optional<std::size_t> bytesPerSecond;  ///< absent: as fast as it goes
    End end = End::whole;
    std::size_t bodyBytes = 0;  ///< of the body, if it is cut
};

/// How many bytes of a reply are sent.
/// @param head  the size of the status line and the headers
/// @param body  the size of the body
[[nodiscard]] constexpr std::size_t sentBytes(const Delivery& delivery, std::size_t head,
                                              std::size_t body) {
    const std::size_t whole = head + body;
    switch (delivery.end) {
        case Delivery::End::whole:
            return whole;
        case Delivery::End::reset:
            return 0;
        case Delivery::End::resetMiddle:
            return whole / 2;
        case Delivery::End::cut:
            break;
    }
    // A cut reply lacks something, and be it the end of its head.
    return delivery.bodyBytes < body ? head + delivery.bodyBytes : whole - 1;
}

}  // namespace KestrinProfileServer
