#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include <curl/curl.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/http/URL.hpp>

namespace HalvardSling {

class CurlOptions;

/// One of libcurl's easy handles, set up for the requests to one origin. Used on one thread.
///
/// libcurl learns the origin once, in parts, and of each request the target alone. Of a whole URL
/// it would take the parts and put them together again for every request, character by character.
class CurlHandle {
  public:
    /// How much of a reply libcurl reads at once. Large replies are read in few pieces with it.
    static constexpr std::size_t receiveBufferBytes = 256UL * 1024;

    /// Holds no handle of libcurl.
    CurlHandle() = default;

    /// Sets up all that is the same for every request to an origin.
    CurlHandle(Origin origin, const CurlTransport::Options& options);

    /// libcurl's handle; null where libcurl refuses something that a safe transfer needs.
    [[nodiscard]] CURL* easy() const noexcept { return easy_.get(); }

    [[nodiscard]] const Origin& origin() const noexcept { return origin_; }

    /// Sets the URL of the next request.
    /// @param set  sets options of `easy`
    /// @param url  one of the handle's origin
    void setURL(CurlOptions& set, const URL& url) const;

  private:
    struct EasyCleanup {
        void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
    };
    struct PartsCleanup {
        void operator()(CURLU* parts) const noexcept { curl_url_cleanup(parts); }
    };

    Origin origin_;
    bool takesWholeURL_ = false;
    std::unique_ptr<CURLU, PartsCleanup> parts_;  // of the origin
    std::unique_ptr<CURL, EasyCleanup> easy_;     // goes first, for it refers to the parts
};

}  // namespace HalvardSling
