#pragma once

#include <chrono>
#include <string_view>

namespace KestrinProfileServer {

/// Writes one line per request to the standard error: time, method, path, status, milliseconds.
/// Never a query, a header or a body.
class RequestLog {
  public:
    explicit RequestLog(bool isQuiet) : isQuiet_(isQuiet) {}

    void add(std::string_view method, std::string_view path, unsigned status,
             std::chrono::steady_clock::duration duration) const;

  private:
    bool isQuiet_;
};

}  // namespace KestrinProfileServer
