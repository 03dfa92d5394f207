#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Timestamp.hpp>

namespace KestrinProfileServer {

/// Something legal but suspicious about a request.
struct Finding {
    std::string_view code;  ///< lives as long as the program
    std::string detail;     ///< without identifiers and texts of users
};

/// The headers of a message as they may be shown, in one piece of memory: "Name: value" lines.
class ShownHeaders {
  public:
    ShownHeaders() = default;
    explicit ShownHeaders(const HeaderLines& headers);

    void add(std::string_view name, std::string_view value);

    [[nodiscard]] HeaderLines lines() const;
    [[nodiscard]] std::size_t bytes() const { return text_.size(); }

  private:
    std::string text_;
};

/// A request and what became of it.
struct Exchange {
    std::string requestID;
    Milliseconds time = 0;
    std::chrono::microseconds duration{0};
    std::string method;
    std::string target;     ///< below the base address of its namespace; without tokens
    std::string household;  ///< empty: it was not found out
    std::uint64_t connection = 0;
    ShownHeaders requestHeaders;
    ShownHeaders replyHeaders;
    std::size_t requestBytes = 0;  ///< of the whole body
    std::size_t replyBytes = 0;
    std::optional<unsigned> status;     ///< absent: no reply was sent
    std::string_view problem;           ///< its name; empty if there was none
    std::optional<std::int64_t> fault;  ///< that acted
    std::vector<Finding> findings;
};

}  // namespace KestrinProfileServer
