#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <HalvardSling/CurlTransport.hpp>
#include <HalvardSling/Transport.hpp>

struct curl_slist;

namespace HalvardSling {

/// One request sent with one of libcurl's easy handles, and what comes back: the part of
/// `CurlTransport` that knows libcurl's options and error codes. Used on one thread.
class CurlExchange {
  public:
    CurlExchange() = default;
    CurlExchange(const CurlExchange&) = delete;
    CurlExchange(CurlExchange&&) = delete;
    CurlExchange& operator=(const CurlExchange&) = delete;
    CurlExchange& operator=(CurlExchange&&) = delete;
    ~CurlExchange() = default;

    struct Span {
        std::chrono::steady_clock::time_point started;
        std::chrono::steady_clock::time_point deadline;
    };

    /// Whom a handle may talk to. The scheme of a request's URL decides.
    enum class Scheme { http, https };
    [[nodiscard]] static Scheme schemeOf(const TransportRequest& request) noexcept;

    /// Sets a new handle up with all that is the same for every request of a scheme.
    /// @return libcurl's result, a CURLcode
    [[nodiscard]] static int setUp(void* easy, Scheme scheme,
                                   const CurlTransport::Options& options);

    /// Prepares a handle (null: none could be set up) that was set up for the request's scheme. It
    /// may have served another request before: whatever differs between two requests is set.
    /// @param request  kept until the exchange is over
    /// @param span     when the transfer began and when it gives up
    /// @param owner    what `ownerOf` returns for this handle
    /// @return why the request cannot be sent, or absent
    [[nodiscard]] std::optional<SlingError> prepare(void* easy,
                                                    std::shared_ptr<const TransportRequest> request,
                                                    Span span, void* owner);

    [[nodiscard]] static void* ownerOf(void* easy);

    /// The outcome, once libcurl is done with the handle. Called once.
    /// @param code  libcurl's result, a CURLcode
    [[nodiscard]] TransportResult result(void* easy, int code);

    /// Fills in what a log may know of the exchange.
    void describe(void* easy, TransferLog& log) const;

  private:
    class Options;
    struct ListFree {
        void operator()(curl_slist* list) const noexcept;
    };
    using List = std::unique_ptr<curl_slist, ListFree>;

    static std::size_t onHeader(char* data, std::size_t, std::size_t size, void* self);
    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* self);
    static int onSend(void* self, char*, char*, int, int);

    static void setSafety(Options& set, Scheme scheme, const CurlTransport::Options& options);
    static void setConnection(Options& set, Scheme scheme, const CurlTransport::Options& options);
    static void setCallbacks(Options& set);
    void setRequest(Options& set);
    void setMethod(Options& set) const;
    [[nodiscard]] List headerLines() const;

    [[nodiscard]] bool takeHeaderLine(std::string_view line);
    void takeField(std::string_view line);
    [[nodiscard]] bool takeBody(std::string_view data);
    [[nodiscard]] Timings timingsOf(void* easy) const;
    [[nodiscard]] SlingErrorKind kindOf(int code) const;
    [[nodiscard]] SlingError failure(int code) const;

    void* easy_ = nullptr;
    std::shared_ptr<const TransportRequest> request_;
    List headerLines_;
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
