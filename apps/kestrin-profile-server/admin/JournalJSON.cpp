#include <algorithm>
#include <utility>

#include <boost/beast/http/status.hpp>
#include <boost/json.hpp>
#include <openssl/evp.h>

#include <internal/ASCII.hpp>
#include <internal/UTF8.hpp>
#include <kestrin-profile-server/admin/Journal.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Redaction.hpp>
#include <kestrin-profile-server/http/Reply.hpp>
#include <kestrin-profile-server/http/Request.hpp>
#include <kestrin-profile-server/http/RequestFacts.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

constexpr std::string_view replacement = "\xEF\xBF\xBD";

constexpr std::size_t pieceSize = std::size_t{64} * 1024;
constexpr std::string_view archiveBegin =
    R"({"log":{"version":"1.2","creator":{"name":"kestrin-profile-server","version":"1"},"entries":[)";
constexpr std::string_view archiveEnd = "]}}";

/// The text with every byte that is no UTF-8 replaced.
std::string asUTF8(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto first = KestrinInternal::firstUTF8Character(text);
        result += first.value ? text.substr(0, first.bytes) : replacement;
        text.remove_prefix(first.bytes);
    }
    return result;
}

json::value orNull(std::string_view text) {
    return text.empty() ? json::value(nullptr) : json::value(asUTF8(text));
}

json::value orNull(const std::optional<std::string>& text) {
    return text ? json::value(asUTF8(*text)) : json::value(nullptr);
}

template <class Number>
json::value numberOrNull(const std::optional<Number>& number) {
    return number ? json::value(*number) : json::value(nullptr);
}

std::string base64(const std::string& bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

/// A UTF-8 text that may have been cut within its last character, without what is left of it.
std::string_view withoutCutCharacter(std::string_view text) {
    for (std::size_t cut = 1; cut <= 3 && cut < text.size(); ++cut) {
        const auto byte = static_cast<unsigned char>(text[text.size() - cut]);
        if ((byte & 0xC0U) == 0x80U) continue;
        const bool isWhole = KestrinInternal::isUTF8(text.substr(text.size() - cut));
        return isWhole ? text : text.substr(0, text.size() - cut);
    }
    return text;
}

json::array headersJSON(const ShownHeaders& headers) {
    json::array lines;
    for (const auto& [name, value] : headers.lines())
        lines.push_back({{"name", asUTF8(name)}, {"value", asUTF8(value)}});
    return lines;
}

/// Puts a body in as text, or in Base64 if it is no text.
void addBody(json::object& message, std::string_view textMember, std::string_view base64Member,
             const KeptText& body, std::size_t bytes) {
    if (!body.isKept()) return;
    const bool isCut = body.text().size() < bytes;
    const std::string shown =
        withoutSecrets(isCut ? withoutCutCharacter(body.text()) : body.text());
    if (KestrinInternal::isUTF8(shown))
        message[textMember] = shown;
    else
        message[base64Member] = base64(shown);
}

json::object messageJSON(const ShownHeaders& headers, const KeptText& body, std::size_t bytes) {
    json::object message{{"headers", headersJSON(headers)},
                         {"body", nullptr},
                         {"bodyBytes", bytes},
                         {"truncated", body.text().size() < bytes}};
    addBody(message, "body", "bodyBase64", body, bytes);
    return message;
}

double millisecondsOf(const Exchange& exchange) {
    return static_cast<double>(exchange.duration.count()) / 1000;
}

json::array findingsJSON(const Exchange& exchange) {
    json::array findings;
    for (const Finding& finding : exchange.findings)
        findings.push_back({{"code", finding.code}, {"detail", finding.detail}});
    return findings;
}

json::array queryJSON(std::string_view query) {
    json::array parameters;
    while (!query.empty()) {
        const std::string_view piece = query.substr(0, query.find('&'));
        const std::size_t equals = std::min(piece.find('='), piece.size());
        parameters.push_back({{"name", asUTF8(piece.substr(0, equals))},
                              {"value", asUTF8(piece.substr(std::min(equals + 1, piece.size())))}});
        query.remove_prefix(std::min(piece.size() + 1, query.size()));
    }
    return parameters;
}

std::string contentTypeOf(const ShownHeaders& headers) {
    for (const auto& [name, value] : headers.lines())
        if (KestrinInternal::equalsIgnoringCase(name, "Content-Type")) return asUTF8(value);
    return "";
}

json::object archivedRequest(const JournalEntry& entry, const std::string& baseURL) {
    const Exchange& exchange = *entry.exchange;
    json::object request{{"method", asUTF8(exchange.method)},
                         {"url", baseURL + asUTF8(exchange.target)},
                         {"httpVersion", "HTTP/1.1"},
                         {"cookies", json::array()},
                         {"headers", headersJSON(exchange.requestHeaders)},
                         {"queryString", queryJSON(queryOf(exchange.target))},
                         {"headersSize", -1},
                         {"bodySize", exchange.requestBytes}};
    if (exchange.requestBytes > 0) {
        json::object content{{"mimeType", contentTypeOf(exchange.requestHeaders)}, {"text", ""}};
        addBody(content, "text", "_base64", entry.requestBody, exchange.requestBytes);
        request["postData"] = std::move(content);
    }
    return request;
}

json::object archivedReply(const JournalEntry& entry) {
    const Exchange& exchange = *entry.exchange;
    const unsigned status = exchange.status.value_or(0);
    json::object content{{"size", exchange.replyBytes},
                         {"mimeType", contentTypeOf(exchange.replyHeaders)}};
    addBody(content, "text", "_base64", entry.replyBody, exchange.replyBytes);
    if (json::value* const bytes = content.if_contains("_base64")) {
        content["text"] = std::move(*bytes);
        content["encoding"] = "base64";
        content.erase("_base64");
    }
    return {{"status", status},
            {"statusText", status == 0 ? ""
                                       : boost::beast::http::obsolete_reason(
                                             boost::beast::http::int_to_status(status))},
            {"httpVersion", "HTTP/1.1"},
            {"cookies", json::array()},
            {"headers", headersJSON(exchange.replyHeaders)},
            {"content", std::move(content)},
            {"redirectURL", ""},
            {"headersSize", -1},
            {"bodySize", exchange.replyBytes}};
}

json::object archivedEntry(const JournalEntry& entry, const std::string& baseURL) {
    const Exchange& exchange = *entry.exchange;
    return {{"startedDateTime", timestampText(exchange.time)},
            {"time", millisecondsOf(exchange)},
            {"request", archivedRequest(entry, baseURL)},
            {"response", archivedReply(entry)},
            {"cache", json::object()},
            {"timings", {{"send", 0}, {"wait", millisecondsOf(exchange)}, {"receive", 0}}},
            {"connection", std::to_string(exchange.connection)},
            {"_requestId", exchange.requestID}};
}

}  // namespace

json::object summaryJSON(const JournalEntry& entry) {
    const Exchange& exchange = *entry.exchange;
    const RequestFacts facts = requestFacts(exchange.method, exchange.target);
    return {{"id", entry.id},
            {"requestId", exchange.requestID},
            {"time", timestampText(exchange.time)},
            {"milliseconds", millisecondsOf(exchange)},
            {"method", asUTF8(exchange.method)},
            {"target", asUTF8(exchange.target)},
            {"operation", orNull(facts.operation())},
            {"profile", orNull(facts.profile)},
            {"household", orNull(std::string_view(exchange.household))},
            {"item", orNull(facts.item)},
            {"status", numberOrNull(exchange.status)},
            {"problem", exchange.problem.empty() ? json::value(nullptr)
                                                 : json::value(problemType(exchange.problem))},
            {"fault", numberOrNull(exchange.fault)},
            {"connection", exchange.connection},
            {"findings", findingsJSON(exchange)}};
}

json::object entryJSON(const JournalEntry& entry) {
    const Exchange& exchange = *entry.exchange;
    json::object whole = summaryJSON(entry);
    whole["request"] =
        messageJSON(exchange.requestHeaders, entry.requestBody, exchange.requestBytes);
    whole["reply"] = messageJSON(exchange.replyHeaders, entry.replyBody, exchange.replyBytes);
    return whole;
}

Reply::Pieces archivePieces(Journal::Entries entries, std::string baseURL) {
    return [entries = std::move(entries), baseURL = std::move(baseURL), next = std::size_t{0},
            hasEnded = false]() mutable {
        std::string piece = next == 0 && !hasEnded ? std::string(archiveBegin) : std::string();
        for (; next < entries.size() && piece.size() < pieceSize; ++next) {
            if (next > 0) piece += ',';
            piece += json::serialize(archivedEntry(entries[next], baseURL));
            entries[next] = {};
        }
        if (next == entries.size() && !std::exchange(hasEnded, true)) piece += archiveEnd;
        return piece;
    };
}

}  // namespace KestrinProfileServer
