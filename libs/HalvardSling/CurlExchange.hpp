#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include <curl/curl.h>

#include <HalvardSling/CurlHandle.hpp>
#include <HalvardSling/CurlHeaderLines.hpp>
#include <HalvardSling/CurlTransport.hpp>
#include <HalvardSling/Transport.hpp>

namespace HalvardSling {

class CurlOptions;

/// One request sent with one of libcurl's easy handles, and what comes back: the part of
/// `CurlTransport` that knows what libcurl is told of a request, and its error codes. Used on one
/// thread.
class CurlExchange {
  public:
    /// @param userAgent  what "User-Agent" says where a request does not; empty: nothing is sent.
    ///                   Referred to.
    explicit CurlExchange(std::string_view userAgent) : userAgent_(userAgent) {}
    CurlExchange(const CurlExchange&) = delete;
    CurlExchange(CurlExchange&&) = delete;
    CurlExchange& operator=(const CurlExchange&) = delete;
    CurlExchange& operator=(CurlExchange&&) = delete;
    ~CurlExchange() = default;

    struct Span {
        std::chrono::steady_clock::time_point started;
        std::chrono::steady_clock::time_point deadline;
    };

    /// Prepares a handle of the request's origin; it may hold none of libcurl's. Whatever differs
    /// between two requests is set, for the handle may have served another one before.
    /// @param request  kept until the exchange is over
    /// @param span     when the transfer began and when it gives up
    /// @param owner    what `ownerOf` returns for this handle
    /// @return why the request cannot be sent, or absent
    [[nodiscard]] std::optional<SlingError> prepare(const CurlHandle& handle,
                                                    std::shared_ptr<const TransportRequest> request,
                                                    Span span, void* owner);

    [[nodiscard]] static void* ownerOf(CURL* easy);

    /// The outcome, once libcurl is done with the handle. Called once.
    /// @param code  libcurl's result
    [[nodiscard]] TransportResult result(CURLcode code);

    /// Fills in what a log may know of the exchange. The handle serves no other one yet.
    void describe(TransferLog& log) const;

  private:
    static std::size_t onHeader(char* data, std::size_t, std::size_t size, void* self);
    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* self);
    static int onSend(void* self, char*, char*, int, int);

    void setRequest(CurlOptions& set);
    void setCallbacks(CurlOptions& set);

    [[nodiscard]] bool takeHeaderLine(std::string_view line);
    void takeField(std::string_view line);
    [[nodiscard]] bool takeBody(std::string_view data);
    [[nodiscard]] Timings timings() const;
    [[nodiscard]] SlingErrorKind kindOf(CURLcode code) const;
    [[nodiscard]] SlingError failure(CURLcode code) const;

    std::string_view userAgent_;
    CURL* easy_ = nullptr;
    std::shared_ptr<const TransportRequest> request_;
    CurlHeaderLines headerLines_;
    std::chrono::steady_clock::time_point deadline_;
    std::chrono::microseconds offset_{0};  ///< from the start of the transfer to this exchange

    enum class Reading { statusLine, fields, body };
    Reading reading_ = Reading::statusLine;
    bool begun_ = false;     ///< whether the request was handed to a connection
    bool tooLarge_ = false;  ///< whether the reply broke a cap
    bool cut_ = false;       ///< whether the rest of an error's body was left unread
    std::size_t headerBytes_ = 0;
    ResponseParts parts_;
};

}  // namespace HalvardSling
