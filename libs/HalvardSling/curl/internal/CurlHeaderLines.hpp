#pragma once

#include <initializer_list>
#include <string_view>
#include <vector>

#include <curl/curl.h>

#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling::internal {

/// The header lines of a request as libcurl takes them: a list, which lies here in one piece of
/// memory and its texts in another. libcurl's own functions allocate twice for each line.
class CurlHeaderLines {
  public:
    /// All header lines of a request but those that say how it is framed.
    /// @param sendsBody  whether a body follows, be it an empty one
    /// @param userAgent  what "User-Agent" says where the request has none; empty: nothing is sent
    /// @return null where there is no line. The list lives until the next call; the room it takes
    ///         serves that one.
    [[nodiscard]] curl_slist* of(const CheckedRequest& request, bool sendsBody,
                                 std::string_view userAgent);

  private:
    void add(std::initializer_list<std::string_view> pieces);
    [[nodiscard]] curl_slist* linked() noexcept;

    std::vector<char> texts_;  // each with a NUL behind it
    std::vector<curl_slist> nodes_;
};

}  // namespace HalvardSling::internal
