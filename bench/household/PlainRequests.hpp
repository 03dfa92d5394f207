#pragma once

#include <memory>
#include <string>

#include <curl/curl.h>

#include "household/HomeService.hpp"

namespace Bench {

/// The requests of the parent, made with libcurl's easy interface, one handle for all and with the
/// fields that the library sends.
class PlainRequests {
  public:
    explicit PlainRequests(const HomeService& service);

    /// Obtains the token that the others are sent with.
    /// @throws std::runtime_error if none can be had
    void bind();

    /// @return whether the service did as it was told
    [[nodiscard]] bool get(const std::string& target);
    [[nodiscard]] bool put(const std::string& target, const std::string& body);

    /// Closes the connection.
    void disconnect();

  private:
    struct EasyCleanup {
        void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
    };

    void setUp();
    [[nodiscard]] bool send(const char* method, const std::string& target, const std::string* body,
                            const std::string& authorisation);

    std::string origin_;
    std::string certificateFile_;
    std::string secret_;
    std::string token_;
    std::string reply_;
    std::unique_ptr<CURL, EasyCleanup> easy_;
};

}  // namespace Bench
