#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/http/Delivery.hpp>
#include <kestrin-profile-server/http/EventStream.hpp>

namespace KestrinProfileServer {

/// What the service answers; without a body there is no content type.
struct Reply {
    /// Returns the next piece of a body, an empty one at its end. Called by one thread at a time.
    using Pieces = std::function<std::string()>;

    unsigned status = 204;
    std::string body{};
    std::string contentType{};
    HeaderLines headers{};
    /// The name of the problem that the body tells, which lives as long as the program; empty if it
    /// tells none.
    std::string_view problem{};
    /// Whose request it was; empty if that was not found out.
    std::string household{};
    /// The fault that acted.
    std::optional<std::int64_t> fault{};
    /// What happens to it on its way; null: nothing.
    std::shared_ptr<const Delivery> delivery{};
    /// What follows the head without an end, in the body's place; null: nothing.
    std::shared_ptr<EventStream> stream{};
    /// What the body consists of if it is too long to be there as a whole; empty: `body` is all.
    Pieces pieces{};
};

/// A reply with a JSON body.
[[nodiscard]] inline Reply jsonReply(unsigned status, const boost::json::object& body) {
    return Reply{
        .status = status, .body = boost::json::serialize(body), .contentType = "application/json"};
}

/// The reply that carries the problem document; `instance` is the path of the request.
[[nodiscard]] Reply replyTo(const Problem& problem, std::string_view instance);

/// The type of a problem in its document.
[[nodiscard]] std::string problemType(std::string_view name);

/// Puts the request's id into the problem document that the reply carries, if it does.
void addRequestID(Reply& reply, std::string_view requestID);

/// Whether the reply says that the request failed, so nothing of it may stay in the database.
[[nodiscard]] inline bool isFailure(const Reply& reply) {
    return reply.status >= 400;
}

}  // namespace KestrinProfileServer
