#pragma once

#include <string>

namespace KestrinProfileServer {

/// What a service shows to its clients by TLS, in PEM.
struct TLSIdentity {
    std::string certificate;
    std::string key;
};

}  // namespace KestrinProfileServer
