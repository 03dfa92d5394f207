#pragma once

#include <string>
#include <utility>
#include <vector>

namespace KestrinProfileServer {

using HeaderLines = std::vector<std::pair<std::string, std::string>>;

/// What the service answers; without a body there is no content type.
struct Reply {
    unsigned status = 204;
    std::string body{};
    std::string contentType{};
    HeaderLines headers{};
};

/// A reply with a JSON body.
inline Reply jsonReply(unsigned status, std::string body) {
    return Reply{status, std::move(body), "application/json", {}};
}

/// Whether the reply says that the request failed, so nothing of it may stay in the database.
inline bool isFailure(const Reply& reply) {
    return reply.status >= 400;
}

}  // namespace KestrinProfileServer
