#pragma once

#include <string>

#include <kestrin-profile-server/domain/Timestamp.hpp>

namespace KestrinProfileServer {

/// What the service tells about itself.
struct ServiceFacts {
    std::string version;
    /// Where clients reach it, without a slash at the end.
    std::string publicURL;
    std::string brand;
    /// By the computer's clock.
    Milliseconds startedAt = 0;
};

}  // namespace KestrinProfileServer
