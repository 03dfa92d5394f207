#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

#include <kestrin-profile-server/http/ExchangeObserver.hpp>
#include <kestrin-profile-server/http/Reply.hpp>
#include <kestrin-profile-server/http/Request.hpp>

namespace KestrinProfileServer {

/// Answers what HttpServer reads. Used by all its threads at once.
class Responder {
  public:
    using Done = std::function<void(Reply)>;

    Responder() = default;
    virtual ~Responder() = default;
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    /// How large the body of a request for this target may be, in bytes.
    [[nodiscard]] virtual std::size_t bodyLimit(std::string_view target) const = 0;

    /// Who is told of a request for this target; null: nobody.
    [[nodiscard]] virtual std::shared_ptr<ExchangeObserver> observer(
        std::string_view target) const = 0;

    /// Calls `done` once, at once or later, on whichever thread. What the request refers to is
    /// there until this returns.
    /// @param thread  which thread calls, from 0
    /// @return what lives until the reply is written, and ends on the calling thread
    [[nodiscard]] virtual std::shared_ptr<const void> respond(Request request, std::size_t thread,
                                                              Done done) const = 0;
};

}  // namespace KestrinProfileServer
