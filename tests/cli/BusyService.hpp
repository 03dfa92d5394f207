#pragma once

#include <atomic>
#include <string>

#include "support/RawServer.hpp"

namespace TestSupport {

/// A service that gives out binds, and is busy so many times before it takes a change.
class BusyService {
  public:
    explicit BusyService(int times = 0) : busy(times) {}

    [[nodiscard]] std::string url() const { return server_.url(""); }

    std::atomic<int> busy;         ///< how often it is so
    std::atomic<int> changes = 0;  ///< that it was asked for
    std::atomic<const char*> headers =
        "";  ///< that it says it is busy with, each with its line end

  private:
    std::string replyTo(const std::string& request) {
        if (request.starts_with("POST")) return httpReply(200, R"({"profileId":"p","token":"t"})");
        ++changes;
        return busy-- > 0 ? httpReply(503, "{}", headers.load()) : httpReply(200, "{}");
    }

    RawServer server_{[this](RawConnection& connection) {
        while (const auto request = connection.readRequest())
            connection.send(replyTo(*request));
    }};
};

}  // namespace TestSupport
