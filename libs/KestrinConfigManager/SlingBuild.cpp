#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <KestrinConfigManager/SlingBuild.hpp>
#include <internal/ASCII.hpp>
#include <internal/Hex.hpp>
#include <internal/UTF8.hpp>

namespace KestrinConfigManager {

namespace {

using HalvardSling::CheckedRequest;
using HalvardSling::Headers;
using HalvardSling::JSONDictionary;
using HalvardSling::Sling;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using HalvardSling::TransportRequest;
using KestrinInternal::isControlOrBlank;
using KestrinInternal::isUTF8;

// Accept and Content-Type.
constexpr std::size_t addedHeaders = 2;
constexpr std::size_t addedHeaderBytes = 64;

/// Whether a character stands in a query as it is (RFC 3986, section 2.3).
constexpr bool isUnreserved(char c) noexcept {
    return KestrinInternal::isLetter(c) || KestrinInternal::isDigit(c) || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

void appendEncoded(std::string& out, std::string_view text) {
    for (const char c : text) {
        if (isUnreserved(c)) {
            out += c;
            continue;
        }
        out += '%';
        KestrinInternal::appendHex(out, c, KestrinInternal::upperHexDigits);
    }
}

/// name=value&name=value…
std::string encodedQuery(const TextMap& query) {
    std::string result;
    for (const auto& [name, value] : query) {
        if (!result.empty()) result += '&';
        appendEncoded(result, name);
        result += '=';
        appendEncoded(result, value);
    }
    return result;
}

/// What joins a query to a URL without fragment.
std::string_view separatorAfter(std::string_view url) {
    const std::size_t mark = url.find('?');
    if (mark == std::string_view::npos) return "?";
    return mark + 1 == url.size() || url.ends_with('&') ? "" : "&";
}

void appendQuery(std::string& url, const TextMap& query) {
    if (query.empty()) return;
    const std::size_t end = std::min(url.find('#'), url.size());
    std::string joined(separatorAfter(std::string_view(url).substr(0, end)));
    url.insert(end, joined += encodedQuery(query));
}

std::string urlOf(const APIParams& params, const WebService& service) {
    std::string url = service.url.filled(params.URLMapping().value_or(TextMap()));
    TextMap query = params.queryParameters().value_or(TextMap());
    query.insert(service.query.begin(), service.query.end());
    appendQuery(url, query);
    return url;
}

void setDefault(Headers& headers, std::string_view name, std::string_view value) {
    if (!headers.value(name)) headers.add(name, value);
}

/// How much the names and values of fields take together.
template <class Fields>
std::size_t bytesOf(const Fields& fields) {
    std::size_t bytes = 0;
    for (const auto& [name, value] : fields)
        bytes += name.size() + value.size();
    return bytes;
}

Headers headersOf(const APIParams& params, const WebService& service) {
    const TextMap own = params.headers().value_or(TextMap());
    Headers headers;
    headers.reserve(service.headers.size() + own.size() + addedHeaders,
                    bytesOf(service.headers) + bytesOf(own) + addedHeaderBytes);
    for (const auto& [name, value] : service.headers)
        headers.add(name, value);
    for (const auto& [name, value] : own)
        headers.set(name, value);
    if (params.removeUserAgent()) headers.remove("User-Agent");
    setDefault(headers, "Accept", "application/json");
    return headers;
}

struct Body {
    std::string text;
    std::string type;
};

std::optional<Body> bodyOf(const APIParams& params, BodyForm form) {
    const bool isAutomatic = form == BodyForm::automatic;
    if (isAutomatic || form == BodyForm::json)
        if (const auto dictionary = params.dictionaryRepresentation())
            return Body{dictionary->toJSON(), "application/json"};
    if (isAutomatic || form == BodyForm::form)
        if (auto text = params.urlEncodedString())
            return Body{*std::move(text), "application/x-www-form-urlencoded"};
    return std::nullopt;
}

/// Where in a dictionary there is a text that is not UTF-8, e.g. "elements[0].id".
std::optional<std::string> malformedField(const JSONDictionary& dictionary) {
    for (const std::string_view key : dictionary.keys()) {
        std::string field(key);
        if (!isUTF8(dictionary.text(key).value_or(""))) return field;
        if (const auto inner = dictionary.dictionary(key))
            if (const auto found = malformedField(*inner)) return field + '.' + *found;
        std::size_t index = 0;
        if (const auto items = dictionary.dictionaries(key))
            for (const auto& item : *items) {
                if (const auto found = malformedField(item))
                    return field + '[' + std::to_string(index) + "]." + *found;
                ++index;
            }
        for (const auto item : dictionary.texts(key).value_or(std::vector<std::string_view>())) {
            if (!isUTF8(item)) return field + '[' + std::to_string(index) + ']';
            ++index;
        }
    }
    return std::nullopt;
}

/// @param body  null: there is none
std::optional<SlingError> validateBody(const APIParams& params, const std::string* body) {
    if (body == nullptr || isUTF8(*body)) return std::nullopt;
    const auto dictionary = params.dictionaryRepresentation();
    const auto field = dictionary ? malformedField(*dictionary) : std::nullopt;
    return SlingError(SlingErrorKind::malformedBody,
                      (field ? "the body's field " + *field : "the body") + " is not UTF-8");
}

/// The first placeholder whose value no URL can hold.
std::optional<std::string_view> malformedValue(const APIParams& params, const URLTemplate& url) {
    const TextMap values = params.URLMapping().value_or(TextMap());
    for (const std::string_view token : url.placeholders()) {
        const auto value = values.find(token);
        if (value != values.end() && std::ranges::any_of(value->second, isControlOrBlank))
            return token;
    }
    return std::nullopt;
}

/// Names the value that is to blame for a URL that may not be sent, if it is one.
SlingError explained(SlingError error, const APIParams& params, const WebService& service) {
    if (error.kind() != SlingErrorKind::malformedURL) return error;
    const auto token = malformedValue(params, service.url);
    if (!token) return error;
    SlingError named(SlingErrorKind::malformedURL, "the value of " + std::string(*token) +
                                                       " holds a control character or a blank");
    return error.context() != nullptr ? named.with(*error.context()) : named;
}

}  // namespace

Sling build(const APIParams& params, const WebService& service) {
    TransportRequest request;
    request.operation = service.operation;
    request.method = service.method;
    request.url = urlOf(params, service);
    request.headers = headersOf(params, service);
    if (auto body = bodyOf(params, service.body)) {
        setDefault(request.headers, "Content-Type", body->type);
        request.body = std::make_shared<const std::string>(std::move(body->text));
    }
    request.policy = service.policy;
    request.sendsUserAgent = !params.removeUserAgent();
    request.pathTemplate = service.url.path();

    if (const auto error = validateBody(params, request.body.get()))
        return Sling(error->with(request.context()));
    auto checked = CheckedRequest::of(std::move(request), HalvardSling::RequestID());
    if (auto* const error = std::get_if<SlingError>(&checked))
        return Sling(explained(std::move(*error), params, service));
    auto& made = std::get<CheckedRequest>(checked);
    if (const auto error = made.url().validateOrigin(service.url.text()))
        return Sling(error->with(made->context()));
    return Sling(std::move(made));
}

}  // namespace KestrinConfigManager
