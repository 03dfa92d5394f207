#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <curl/curl.h>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/curl/internal/CurlConnections.hpp>
#include <HalvardSling/curl/internal/CurlHandle.hpp>
#include <HalvardSling/curl/internal/CurlHeaderLines.hpp>
#include <HalvardSling/curl/internal/GzipDecoder.hpp>
#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling::internal {

class CurlOptions;

/// Sends requests to one origin, one after the other, with one of libcurl's easy handles, and takes
/// in what comes back: the part of `CurlEngine` that knows what libcurl is told of a request,
/// and its error codes. Used on one thread.
class CurlExchange {
  public:
    /// @param userAgent    what "User-Agent" says where a request does not; empty: nothing is sent.
    ///                     Referred to.
    /// @param connections  referred to
    CurlExchange(CurlHandle handle, std::string_view userAgent, CurlConnections& connections);
    CurlExchange(const CurlExchange&) = delete;
    CurlExchange& operator=(const CurlExchange&) = delete;
    ~CurlExchange() = default;

    struct Span {
        std::chrono::steady_clock::time_point started;
        std::chrono::steady_clock::time_point deadline;
    };

    /// See `CurlHandle::origin`.
    [[nodiscard]] const Origin& origin() const noexcept { return handle_.origin(); }

    /// libcurl's handle; null before `prepare`.
    [[nodiscard]] CURL* easy() const noexcept { return handle_.easy(); }

    /// Makes the handle ready for a request. Whatever differs between two requests is set. The
    /// exchange is new, or cleared.
    /// @param request   one to the handle's origin; kept until the exchange is over
    /// @param span      when the transfer began and when it gives up
    /// @param transfer  what `transferOf` tells of this handle
    /// @return why the request cannot be sent, or absent
    [[nodiscard]] std::optional<SlingError> prepare(CheckedRequest request, Span span,
                                                    TransferID transfer);

    /// Whether a request that libcurl is done with goes to another connection, because nothing can
    /// be said of this one's reply: it is not to be relied on, or it is none. Only once, and only
    /// if it has not been sent or does nothing but read.
    /// @param code  libcurl's result
    [[nodiscard]] bool goesElsewhere(CURLcode code) const;

    /// Makes the handle ready to send the same request over a new connection.
    /// @return false if that cannot be done; then `result` says why
    [[nodiscard]] bool prepareElsewhere() noexcept;

    /// Whether libcurl keeps the request, over TLS, back until a connection is there that another
    /// one makes.
    [[nodiscard]] bool awaitsConnection() const noexcept {
        return !begun_ && !isSpoilt_ && !handle_.hasSocket();
    }

    /// Whether the request was handed to a new connection over TLS since the last call: one that
    /// others may have waited for.
    [[nodiscard]] bool takeConnected() noexcept { return std::exchange(isConnected_, false); }

    /// Makes a handle whose request awaits a connection ready to be given to libcurl anew.
    void prepareAnew();

    /// The transfer that an exchange's handle is busy with.
    [[nodiscard]] static TransferID transferOf(CURL* easy);

    /// The outcome, once libcurl is done with the handle. Called once.
    /// @param code  libcurl's result
    [[nodiscard]] TransportResult result(CURLcode code);

    // libcurl 7.88.1 does not see by itself that it has read more over an HTTP/2 connection than it
    // has handed out, where a reply that filled its buffer had held it up.

    /// Whether it may have more in hand: since the last call it handed out a piece of a reply that
    /// was large enough for that.
    [[nodiscard]] bool mayHaveMore() noexcept { return std::exchange(hasMore_, false); }

    /// Whether libcurl may have more in hand for the others, now that this one has left the
    /// connection.
    /// @param isWhole  whether it left because its reply was whole
    [[nodiscard]] bool leavesMore(bool isWhole) const;

    /// How much of its reply may still come over a connection that others share.
    /// @param isWhole  as above
    [[nodiscard]] std::uint64_t leavesUnderWay(bool isWhole) const;

    /// Has libcurl go on with the reply although nothing more has come.
    void readOn() const noexcept;

    /// Fills in what a log may know of the request that was sent last.
    void describe(TransferLog& log) const;

    /// Lets go of the request that is over.
    /// @param use  how often libcurl's handle may be used
    void clear(HandleUse use);

  private:
    static std::size_t onHeader(char* data, std::size_t, std::size_t size, void* self) noexcept;
    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* self) noexcept;
    static int onSend(void* self, char* remoteIP, char* localIP, int remotePort,
                      int localPort) noexcept;
    template <class Take>
    [[nodiscard]] bool taken(Take take) noexcept;

    [[nodiscard]] CURLcode setUpHandle();
    void setTimeLimit(CurlOptions& set);
    void setRequest(CurlOptions& set);

    /// Only between `prepare` and `clear`.
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access)
    [[nodiscard]] const CheckedRequest& checked() const noexcept { return *request_; }
    [[nodiscard]] const TransportRequest& current() const noexcept { return *checked(); }
    [[nodiscard]] bool maySend(CurlConnections::Addresses connection);
    [[nodiscard]] bool refuse(SlingErrorKind reason) noexcept;
    [[nodiscard]] bool takeHeaderLine(std::string_view line);
    void takeField(std::string_view line);
    [[nodiscard]] bool takeEndOfHead();
    [[nodiscard]] bool takeBody(std::string_view data);
    [[nodiscard]] bool beginBody();
    [[nodiscard]] bool takeDecoded(std::string_view data);
    [[nodiscard]] bool isErrorStatus() const noexcept;
    [[nodiscard]] bool isBodyWhole() const;
    [[nodiscard]] curl_off_t announcedLength() const;
    [[nodiscard]] bool isEndedByConnection() const;
    void makeRoom(std::size_t size, std::size_t cap);
    [[nodiscard]] bool sharesConnection() const;
    [[nodiscard]] bool hasFilledBuffer() const;
    [[nodiscard]] Timings timings() const;
    [[nodiscard]] SlingErrorKind kindOf(CURLcode code) const;
    [[nodiscard]] SlingError failure(CURLcode code) const;

    std::string_view userAgent_;
    CurlConnections& connections_;
    CurlHeaderLines headerLines_;

    // Of the request that was sent last:
    std::optional<CheckedRequest> request_;
    TransferID transfer_ = 0;
    Span span_{};
    CurlConnections::Addresses connection_;  ///< that it was handed to
    std::chrono::microseconds offset_{0};    ///< from the start of the transfer to this request

    enum class Reading { statusLine, fields, body };
    Reading reading_ = Reading::statusLine;
    bool begun_ = false;        ///< whether the request was handed to a connection
    bool isSpoilt_ = false;     ///< whether it was not, because of what had come over it
    bool isElsewhere_ = false;  ///< see `prepareElsewhere`
    bool isConnected_ = false;  ///< see `takeConnected`
    bool hasMore_ = false;      ///< see `mayHaveMore`
    std::optional<SlingErrorKind> refusal_{};  ///< why the rest of the reply was not taken
    std::size_t headerBytes_ = 0;
    std::optional<GzipDecoder> decoder_;  ///< since the body has begun, if it is coded
    ResponseParts parts_;

    CurlHandle handle_;  // goes first, for it refers to the others
};

}  // namespace HalvardSling::internal
