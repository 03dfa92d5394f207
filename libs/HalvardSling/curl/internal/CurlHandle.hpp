#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include <curl/curl.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/http/URL.hpp>

namespace HalvardSling::internal {

class CurlOptions;
class CurlSockets;

/// How often one of libcurl's easy handles sends a request.
enum class HandleUse { once, often };

/// How often a libcurl of this version (`curl_version_info_data::version_num`) may use a handle.
/// Before 8.1.0 a handle keeps a pointer to the last header of its former request, which is freed,
/// and writes to it if the headers of the next reply begin with a folded line.
[[nodiscard]] HandleUse safeHandleUse(unsigned version) noexcept;

/// The easy handles of libcurl for the requests to one origin, one at a time. Used on one thread.
///
/// libcurl learns the origin once, in parts, and of each request the target alone. Of a whole URL
/// it would take the parts and put them together again for every request, character by character.
class CurlHandle {
  public:
    /// How much of a reply libcurl reads at once. Large replies are read in few pieces with it.
    static constexpr std::size_t receiveBufferBytes = 256UL * 1024;

    /// @param options  referred to
    /// @param sockets  has those of its connections; referred to
    CurlHandle(Origin origin, const CurlTransport::Options& options, CurlSockets& sockets);

    /// Makes a new handle and sets all that is the same for every request to the origin.
    /// @return sets options of the new handle; failed if libcurl refuses something that a safe
    ///         transfer needs
    [[nodiscard]] CurlOptions setUp();

    /// Frees libcurl's handle.
    void release() noexcept { easy_.reset(); }

    /// libcurl's handle; null before `setUp` and after `release`.
    [[nodiscard]] CURL* easy() const noexcept { return easy_.get(); }

    [[nodiscard]] const Origin& origin() const noexcept { return origin_; }

    [[nodiscard]] CurlSockets& sockets() const noexcept { return sockets_; }

    /// Sets the URL of the next request.
    /// @param set  sets options of `easy`
    /// @param url  one of the handle's origin
    void setURL(CurlOptions& set, const URL& url);

    /// Whether libcurl has opened a socket for the request.
    [[nodiscard]] bool hasSocket() const noexcept { return hasSocket_; }

  private:
    static curl_socket_t onOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept;
    static int onCloseSocket(void* sockets, curl_socket_t descriptor) noexcept;

    void setSockets(CurlOptions& set);

    struct EasyCleanup {
        void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
    };
    struct PartsCleanup {
        void operator()(CURLU* parts) const noexcept { curl_url_cleanup(parts); }
    };

    const CurlTransport::Options& options_;
    CurlSockets& sockets_;
    Origin origin_;
    std::string originText_;
    bool hasSocket_ = false;
    std::unique_ptr<CURLU, PartsCleanup> parts_;  // of the origin
    std::unique_ptr<CURL, EasyCleanup> easy_;     // goes first, for it refers to the parts
};

}  // namespace HalvardSling::internal
