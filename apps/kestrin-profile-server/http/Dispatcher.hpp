#pragma once

#include <functional>

#include <kestrin-profile-server/http/Authorisation.hpp>
#include <kestrin-profile-server/http/Handlers.hpp>
#include <kestrin-profile-server/http/Request.hpp>
#include <kestrin-profile-server/http/WriteQueue.hpp>

namespace KestrinProfileServer {

/// Where the service says that it lives; outside the protocol, needs no credentials.
constexpr std::string_view healthPath = "/healthz";

/// Answers requests: finds the route, checks the general rules in one order for all operations,
/// and runs the operation where it belongs. Used by all threads at once.
class Dispatcher {
  public:
    using Done = std::function<void(Reply)>;

    Dispatcher(const Tokens& tokens, const LiveLimits& limits, Clock clock, WriteQueue& writes)
        : tokens_(tokens), limits_(limits), clock_(std::move(clock)), writes_(writes) {}

    /// Calls `done` once: at once for reads and refused requests, from the thread of the writes
    /// after a write is on the disk. `reader` belongs to the calling thread.
    void dispatch(const Request& request, Connection& reader, Done done) const;

  private:
    struct Call;

    [[nodiscard]] Call callFor(const Request& request) const;
    [[nodiscard]] Reply run(const Call& call, Connection& connection) const;
    [[nodiscard]] Reply runRead(const Call& call, Connection& reader) const;
    void addWrite(Call call, Done done) const;

    const Tokens& tokens_;
    const LiveLimits& limits_;
    Clock clock_;
    WriteQueue& writes_;
};

}  // namespace KestrinProfileServer
