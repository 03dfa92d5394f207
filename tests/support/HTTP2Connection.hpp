#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "support/RawServer.hpp"

namespace TestSupport {

/// An HTTP/2 connection (RFC 9113) as a server sees it, frame by frame: for tests of replies that
/// arrive in a certain order. It answers nothing by itself but the client's settings.
class HTTP2Connection {
  public:
    /// Reads the client's preface and sends settings of its own.
    /// @param connection  one that agreed to "h2"; referred to
    explicit HTTP2Connection(RawConnection& connection);

    /// Reads up to the next request; absent where the peer has closed.
    /// @return its stream
    std::optional<std::uint32_t> readRequest();

    /// Begins a reply with status 200 and a body of so many bytes.
    bool sendHead(std::uint32_t stream, std::size_t bodySize);

    /// Begins a reply with status 200 that does not say how long its body is.
    /// @param fields  further header fields, made by `field`
    bool sendHeadWithoutLength(std::uint32_t stream, std::string_view fields = {});

    /// A header field of a head.
    /// @param name   in lower case; like the value, shorter than 127 bytes
    [[nodiscard]] static std::string field(std::string_view name, std::string_view value);

    /// Sends frames as one TLS record where they fit into 16 KiB. False where the peer has closed.
    bool send(std::string_view frames) { return connection_.send(frames); }

    enum class Ends { no, yes };
    /// A frame of a body's bytes, at most 16 KiB.
    /// @param ends  whether the reply ends with it
    [[nodiscard]] static std::string data(std::uint32_t stream, std::string_view bytes, Ends ends);

    /// Any frame, right or wrong.
    /// @param stream  0: the connection
    [[nodiscard]] static std::string frame(std::uint8_t type, std::uint8_t flags,
                                           std::uint32_t stream, std::string_view payload);

    /// The four bytes of a number in a frame's payload.
    [[nodiscard]] static std::string number(std::uint32_t value);

  private:
    RawConnection& connection_;
};

}  // namespace TestSupport
