#include <algorithm>
#include <new>

#include <boost/beast/http/error.hpp>

#include <internal/ASCII.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/RequestParser.hpp>

namespace KestrinProfileServer {
namespace {

namespace http = boost::beast::http;
using KestrinInternal::equalsIgnoringCase;

constexpr unsigned version11 = 11;
/// A field's colon, blank and line ending.
constexpr std::size_t fieldFrame = 4;

std::string_view viewOf(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

boost::beast::error_code noMemory() {
    return make_error_code(boost::system::errc::not_enough_memory);
}

Problem malformed(const std::string& detail) {
    return {ProblemKind::malformedRequest, detail};
}

/// Whether the text may be the value of Host (RFC 9110, 7.2): empty, or of the characters that
/// hosts and ports are made of.
bool isHost(std::string_view text) {
    static constexpr std::string_view marks = "-._~!$&'()*+,;=%:[]";
    return std::ranges::all_of(text, [](char each) {
        return KestrinInternal::isDigit(each) || KestrinInternal::isLetter(each) ||
               marks.find(each) != std::string_view::npos;
    });
}

/// How long the scheme is that a target begins with, "http://"; 0 if it begins with none.
std::size_t schemeSize(std::string_view target) {
    for (const std::string_view scheme : {"http://", "https://"})
        if (equalsIgnoringCase(target.substr(0, scheme.size()), scheme)) return scheme.size();
    return 0;
}

}  // namespace

RequestParser::RequestParser(MemoryBudget::Share& share, const BodyLimitOf* limitOf)
    : share_(share), limitOf_(limitOf) {
    header_limit(static_cast<std::uint32_t>(headerLimit));
    body_limit(bodyLimit);
}

bool RequestParser::waitsForContinue() const {
    const auto expected = valuesOf("Expect");
    return version_ == version11 && !expected.empty() &&
           equalsIgnoringCase(expected.front(), "100-continue");
}

std::vector<std::string_view> RequestParser::valuesOf(std::string_view name) const {
    std::vector<std::string_view> values;
    for (const auto& [each, value] : headers_)
        if (equalsIgnoringCase(each, name)) values.push_back(value);
    return values;
}

std::optional<Problem> RequestParser::framingProblem() const {
    if (auto problem = hostProblem()) return problem;
    const auto lengths = valuesOf("Content-Length");
    if (lengths.size() > 1) return malformed("the header Content-Length came more than once");
    if (!lengths.empty() && !std::ranges::all_of(lengths.front(), KestrinInternal::isDigit)) {
        return malformed("the Content-Length is '" + excerptOf(lengths.front()) +
                         "'; expected is one number");
    }
    return codingProblem();
}

std::optional<Problem> RequestParser::hostProblem() const {
    const auto hosts = valuesOf("Host");
    if (hosts.size() > 1) return malformed("the header Host came more than once");
    if (hosts.empty() && version_ == version11)
        return malformed("the request has no Host header; HTTP/1.1 needs one");
    if (!hosts.empty() && !isHost(hosts.front())) {
        return malformed("the host is '" + excerptOf(hosts.front()) +
                         "'; expected is a name or an address, with a port or without");
    }
    if (authority_ && (authority_->empty() || !isHost(*authority_))) {
        return malformed("the target's host is '" + excerptOf(*authority_) +
                         "'; expected is a name or an address, with a port or without");
    }
    return std::nullopt;
}

std::optional<Problem> RequestParser::codingProblem() const {
    const auto codings = valuesOf("Transfer-Encoding");
    if (codings.empty()) return std::nullopt;
    if (codings.size() > 1) return malformed("the header Transfer-Encoding came more than once");
    if (!equalsIgnoringCase(codings.front(), "chunked")) {
        return malformed("the Transfer-Encoding is '" + excerptOf(codings.front()) +
                         "'; expected is chunked or none");
    }
    if (version_ != version11)
        return malformed("the request has a Transfer-Encoding, which HTTP/1.0 does not know");
    return std::nullopt;
}

std::optional<Problem> RequestParser::problemOf(boost::beast::error_code error) const {
    const std::string limit = std::to_string(headerLimit / 1024) + " KiB";
    if (error == http::error::body_limit) {
        return Problem(
            ProblemKind::bodyTooLarge,
            "the body is larger than " + std::to_string(bodyLimit_ / bodyLimit) + " MiB");
    }
    if (error == http::error::buffer_overflow ||
        (error == http::error::header_limit && is_header_done())) {
        return Problem(
            ProblemKind::headersTooLarge,
            "what comes with the chunks of the body, or behind them, is larger than " + limit);
    }
    if (error == http::error::header_limit) {
        return Problem(ProblemKind::headersTooLarge,
                       "the request line and the headers are larger than " + limit +
                           ", or more than " + std::to_string(headerCountLimit));
    }
    if (error == noMemory()) {
        return Problem(ProblemKind::busy,
                       "the requests and replies of all clients together take too much memory;"
                       " nothing was done, try again");
    }
    const bool isCutOff =
        error == http::error::end_of_stream || error == http::error::partial_message;
    if (isCutOff || error.category() != http::make_error_code(http::error{}).category())
        return std::nullopt;
    return malformed("not understood: " + error.message() + "; expected is HTTP/1.1 in clear text");
}

// The library counts only what it has not taken apart yet.
void RequestParser::countHeaderBytes(std::size_t bytes, Error& error) {
    headerBytes_ += bytes;
    if (headerBytes_ > headerLimit) error = http::error::header_limit;
}

void RequestParser::on_request_impl(http::verb, Text method, Text target, int version,
                                    Error& error) {
    method_ = viewOf(method);
    takeTarget(viewOf(target));
    version_ = static_cast<unsigned>(version);
    countHeaderBytes(method.size() + target.size(), error);
    if (limitOf_ != nullptr) bodyLimit_ = (*limitOf_)(target_);
    body_limit(bodyLimit_);
}

void RequestParser::takeTarget(std::string_view target) {
    const std::size_t scheme = schemeSize(target);
    if (scheme > 0) {
        target.remove_prefix(scheme);
        const std::size_t end = std::min(target.find_first_of("/?"), target.size());
        authority_ = target.substr(0, end);
        target.remove_prefix(end);
        if (!target.starts_with('/')) target_ = "/";
    }
    target_ += target;
}

void RequestParser::on_field_impl(http::field, Text name, Text value, Error& error) {
    if (is_header_done()) return;
    countHeaderBytes(name.size() + value.size() + fieldFrame, error);
    if (headers_.size() == headerCountLimit) error = http::error::header_limit;
    if (error) return;
    // The target's host counts; that of the header is ignored (RFC 9112, 3.2.2).
    const bool isReplaced = authority_ && equalsIgnoringCase(viewOf(name), "Host");
    headers_.emplace_back(viewOf(name), isReplaced ? *authority_ : std::string(viewOf(value)));
}

void RequestParser::on_chunk_header_impl(std::uint64_t, Text extensions, Error& error) {
    extensionBytes_ += extensions.size();
    if (extensionBytes_ > headerLimit) error = http::error::header_limit;
}

std::size_t RequestParser::append(Text piece, Error& error) {
    if (!share_.take(piece.size())) {
        error = noMemory();
        return 0;
    }
    body_ += viewOf(piece);
    return piece.size();
}

}  // namespace KestrinProfileServer
