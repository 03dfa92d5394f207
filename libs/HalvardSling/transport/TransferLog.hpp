#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling {

/// What a log may know of one transfer that has ended. It holds no header, no body, and of the URL
/// only the origin and the path with its placeholders unfilled.
struct TransferLog {
    TransferID transfer = 0;    ///< what `send` returned
    std::string method;         ///< of the last request that was sent, after redirects
    std::string origin;         ///< whom it was sent to, e.g. "https://api.example.com:443"
    std::string pathTemplate;   ///< `TransportRequest::pathTemplate`
    std::optional<int> status;  ///< absent if there was no reply
    std::optional<SlingErrorKind> error;  ///< absent if the transfer ended with a reply
    std::uint64_t bytesSent = 0;          ///< of the last request's body
    std::uint64_t bytesReceived = 0;      ///< of the last reply's body, before decoding
    std::chrono::microseconds waited{0};  ///< until the number in flight allowed it to start
    Timings timings;                      ///< counted from the end of the wait
    int redirects = 0;                    ///< how many were followed
    bool reusedConnection = false;        ///< whether it went over a connection that was there
    std::string httpVersion;              ///< "1.0", "1.1" or "2"; empty if there was no reply
};

/// Receives one record for each transfer that ends, cancelled ones included, on the transport's
/// thread, before the completion and with no lock held. It must neither block nor throw. A transfer
/// leaves no record if the memory for that is lacking.
using TransferLogHook = std::function<void(const TransferLog&)>;

}  // namespace HalvardSling
