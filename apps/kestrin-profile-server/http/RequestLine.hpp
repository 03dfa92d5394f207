#pragma once

#include <string>

#include <kestrin-profile-server/http/Exchange.hpp>

namespace KestrinProfileServer {

/// For whom the log is.
enum class LogFormat {
    text,  ///< people
    json,  ///< programs: one object in a line
};

/// What the log says of a request, with the line's end: time, method, path, status, milliseconds,
/// operation, profile, problem, request id, fault and findings. Never another query value, a header
/// or a body, and nothing that a terminal obeys.
/// @param space  the namespace; empty for the default one
[[nodiscard]] std::string requestLine(const Exchange& exchange, const std::string& space,
                                      LogFormat format);

}  // namespace KestrinProfileServer
