#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/beast/http/basic_parser.hpp>

#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/http/MemoryBudget.hpp>

namespace KestrinProfileServer {

/// The largest request line with its headers; also the largest line of a chunk, and the largest
/// trailers. No more than this is read ahead.
constexpr std::size_t headerLimit = std::size_t{64} * 1024;
constexpr std::size_t headerCountLimit = 100;
constexpr std::size_t bodyLimit = std::size_t{1024} * 1024;

/// How large the body of a request for a target may be, in bytes.
using BodyLimitOf = std::function<std::size_t(std::string_view target)>;

/// Takes a request apart as it arrives and keeps what the limits allow. Trailers are read and
/// forgotten: what comes behind a body authorises nothing.
class RequestParser final : public boost::beast::http::basic_parser<true> {
  public:
    /// @param share    what the body is taken from
    /// @param limitOf  lives as long as the parser; without it, `bodyLimit` for all targets
    explicit RequestParser(MemoryBudget::Share& share, const BodyLimitOf* limitOf = nullptr);

    [[nodiscard]] const std::string& method() const { return method_; }
    /// Begins with the path; of a target with the service's address (RFC 9112, 3.2.2) that address
    /// is the value of the header Host.
    [[nodiscard]] const std::string& target() const { return target_; }
    /// 10 or 11; 11 as long as the request has not said it.
    [[nodiscard]] unsigned version() const { return version_; }
    [[nodiscard]] const HeaderLines& headers() const { return headers_; }
    [[nodiscard]] const std::string& body() const { return body_; }

    /// Whether the client waits for a word before it sends the body.
    [[nodiscard]] bool waitsForContinue() const;

    /// What to refuse, once the headers are there, because two readers could see its end, or the
    /// service that it is for, in different places.
    [[nodiscard]] std::optional<Problem> framingProblem() const;

    /// What to say about input that cannot be read on; absent if the client has gone.
    [[nodiscard]] std::optional<Problem> problemOf(boost::beast::error_code error) const;

    /// Takes the body away.
    [[nodiscard]] std::string takeBody() { return std::exchange(body_, {}); }

  private:
    using Error = boost::beast::error_code;
    using Text = boost::beast::string_view;

    [[nodiscard]] std::vector<std::string_view> valuesOf(std::string_view name) const;
    [[nodiscard]] std::optional<Problem> hostProblem() const;
    [[nodiscard]] std::optional<Problem> codingProblem() const;
    void takeTarget(std::string_view target);
    void countHeaderBytes(std::size_t bytes, Error& error);
    std::size_t append(Text piece, Error& error);

    void on_request_impl(boost::beast::http::verb verb, Text method, Text target, int version,
                         Error& error) override;
    void on_response_impl(int, Text, int, Error&) override {}
    void on_field_impl(boost::beast::http::field field, Text name, Text value,
                       Error& error) override;
    void on_header_impl(Error&) override {}
    void on_body_init_impl(const boost::optional<std::uint64_t>&, Error&) override {}
    std::size_t on_body_impl(Text piece, Error& error) override { return append(piece, error); }
    void on_chunk_header_impl(std::uint64_t size, Text extensions, Error& error) override;
    std::size_t on_chunk_body_impl(std::uint64_t, Text piece, Error& error) override {
        return append(piece, error);
    }
    void on_finish_impl(Error&) override {}

    MemoryBudget::Share& share_;
    std::size_t bodyLimit_ = bodyLimit;
    const BodyLimitOf* limitOf_;
    std::string method_;
    std::string target_;
    /// The service's address in the target.
    std::optional<std::string> authority_;
    unsigned version_ = 11;
    HeaderLines headers_;
    std::string body_;
    std::size_t headerBytes_ = 0;
    std::size_t extensionBytes_ = 0;
};

}  // namespace KestrinProfileServer
