#pragma once

#include <string>
#include <string_view>

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

/// The reply that carries the problem document; `instance` is the path of the request.
[[nodiscard]] Reply replyTo(const Problem& problem, std::string_view instance);

/// Whether the reply says that the request failed, so nothing of it may stay in the database.
[[nodiscard]] inline bool isFailure(const Reply& reply) {
    return reply.status >= 400;
}

}  // namespace KestrinProfileServer
