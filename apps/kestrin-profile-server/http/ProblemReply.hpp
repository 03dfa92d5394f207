#pragma once

#include <string_view>

#include <kestrin-profile-server/http/ProblemReply.hpp>
#include <kestrin-profile-server/http/Reply.hpp>

namespace KestrinProfileServer {

/// The reply that carries the problem document; `instance` is the path of the request.
[[nodiscard]] Reply replyTo(const Problem& problem, std::string_view instance);

}  // namespace KestrinProfileServer
