#pragma once

#include <string>
#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include <kestrin-profile-server/domain/Problem.hpp>

namespace KestrinProfileServer {

/// What the service answers; without a body there is no content type.
struct Reply {
    unsigned status = 204;
    std::string body{};
    std::string contentType{};
    HeaderLines headers{};
};

/// A reply with a JSON body.
[[nodiscard]] inline Reply jsonReply(unsigned status, const boost::json::object& body) {
    return Reply{status, boost::json::serialize(body), "application/json", {}};
}

/// Whether the reply says that the request failed, so nothing of it may stay in the database.
[[nodiscard]] inline bool isFailure(const Reply& reply) {
    return reply.status >= 400;
}

}  // namespace KestrinProfileServer
