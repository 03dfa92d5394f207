#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KestrinProfileServer {

/// A request as it came; the views live as long as the connection waits for the answer. The target
/// begins with the path: the service's address in it, which HTTP allows, was taken away.
struct Request {
    std::string_view method;
    std::string_view target;
    std::string_view body;
    std::vector<std::pair<std::string_view, std::string_view>> headers;
    /// Calls a function later, on the thread that reads the request, or at once when the service
    /// stops; without occupying the thread until then. To be called on that thread.
    std::function<void(std::chrono::milliseconds, std::function<void()>)> afterwards;
    /// How far the service's clock is ahead for this request.
    std::chrono::seconds clockSkew{0};
};

/// The value of a header that may come once; throws the problem when it is repeated.
[[nodiscard]] std::optional<std::string_view> headerOf(const Request& request,
                                                       std::string_view name);

/// The part of a request target before the query.
[[nodiscard]] std::string_view pathOf(std::string_view target);

/// The part behind the first question mark; empty if there is none.
[[nodiscard]] std::string_view queryOf(std::string_view target);

/// Whether the target is that of a namespace with a name.
[[nodiscard]] bool isNamedTarget(std::string_view target);

/// The name of the namespace in a target like "/n/NAME/v1/history?…"; empty: the one at the root.
[[nodiscard]] std::string_view namespaceIn(std::string_view target);

/// The target as its namespace sees it.
[[nodiscard]] std::string_view targetWithin(std::string_view target);

/// The method of the route that answers: a HEAD is answered as a GET, and only its body not sent.
[[nodiscard]] std::string_view routeMethodOf(const Request& request);

}  // namespace KestrinProfileServer
