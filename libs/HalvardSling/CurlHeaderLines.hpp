#pragma once

#include <initializer_list>
#include <string_view>
#include <vector>

#include <curl/curl.h>

#include <HalvardSling/Transport.hpp>

namespace HalvardSling {

/// The header lines of one request as libcurl takes them: a list, which lies here in one piece of
/// memory and its texts in another. libcurl's own functions allocate twice for each line.
class CurlHeaderLines {
  public:
    /// No lines.
    CurlHeaderLines() = default;

    /// All header lines of a request but those that say how it is framed.
    /// @param sendsBody  whether a body follows, be it an empty one
    /// @param userAgent  what "User-Agent" says where the request has none; empty: nothing is sent
    CurlHeaderLines(const TransportRequest& request, bool sendsBody, std::string_view userAgent);

    CurlHeaderLines(const CurlHeaderLines&) = delete;  // the nodes point into the texts
    CurlHeaderLines(CurlHeaderLines&&) = default;
    CurlHeaderLines& operator=(const CurlHeaderLines&) = delete;
    CurlHeaderLines& operator=(CurlHeaderLines&&) = default;
    ~CurlHeaderLines() = default;

    /// Null where there is no line. Lives as long as this object is neither changed nor destroyed.
    [[nodiscard]] curl_slist* list() noexcept { return nodes_.empty() ? nullptr : nodes_.data(); }

  private:
    void add(std::initializer_list<std::string_view> pieces);
    void link();

    std::vector<char> texts_;  // each with a NUL behind it
    std::vector<curl_slist> nodes_;
};

}  // namespace HalvardSling
