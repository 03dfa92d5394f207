#include <algorithm>
#include <array>
#include <charconv>

#include <boost/json.hpp>

#include <internal/ASCII.hpp>
#include <internal/Table.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Body.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

/// The largest integer that every JSON reader keeps exactly.
constexpr std::int64_t largestProgress = 9007199254740991;

constexpr std::array<BodyKey, 2> elementKeys{{
    {"id", ValueKind::identifier, true},
    {"type", ValueKind::text},
}};

bool isText(const json::value& value) {
    return value.is_string() && value.get_string().size() <= longestText;
}

bool isOneOf(const json::value& value, std::initializer_list<std::string_view> texts) {
    return value.is_string() &&
           std::ranges::find(texts, std::string_view(value.get_string())) != texts.end();
}

std::optional<std::int64_t> decimalValue(std::string_view text) {
    std::int64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number < 0 || number > largestProgress)
        return std::nullopt;
    return text.starts_with('-') ? std::nullopt : std::optional(number);
}

/// How a kind of value is recognised and what a message calls it.
struct KindRow {
    ValueKind kind;
    bool (*accepts)(const json::value&);
    std::string_view expected;
};

constexpr std::array<KindRow, 7> kindTable{{
    {ValueKind::text, isText, "a text of at most 2048 bytes"},
    {ValueKind::identifier,
     [](const json::value& value) { return isText(value) && !value.get_string().empty(); },
     "a text of 1 to 2048 bytes"},
    {ValueKind::boolean, [](const json::value& value) { return value.is_bool(); },
     "true or false (not as text)"},
    {ValueKind::truthText,
     [](const json::value& value) { return isOneOf(value, {"true", "false"}); },
     R"(the text "true" or "false")"},
    {ValueKind::decimalText,
     [](const json::value& value) {
         return value.is_string() && decimalValue(value.get_string()).has_value();
     },
     R"(a decimal number as text, like "42", from 0 to 9007199254740991)"},
    {ValueKind::termText, [](const json::value& value) { return isOneOf(value, {"TERM"}); },
     R"(the text "TERM")"},
    {ValueKind::elements, [](const json::value& value) { return value.is_array(); },
     "an array of objects"},
}};
static_assert(KestrinInternal::isInOrder(kindTable, &KindRow::kind));

[[noreturn]] void refuse(const std::string& detail) {
    throw Problem(ProblemKind::invalidBody, detail);
}

std::string namesOf(std::span<const BodyKey> keys) {
    std::string names;
    for (const BodyKey& key : keys)
        names += (names.empty() ? "'" : ", '") + std::string(key.name) + "'";
    return names;
}

const json::object& checkedObject(const json::value& value, std::span<const BodyKey> keys,
                                  const std::string& place);

void checkElements(const json::array& elements, const std::string& place) {
    for (std::size_t index = 0; index < elements.size(); ++index)
        checkedObject(elements[index], elementKeys, place + "[" + std::to_string(index) + "]");
}

void checkValue(const json::value& value, ValueKind kind, const std::string& place) {
    const KindRow& row = KestrinInternal::rowOf(kindTable, kind);
    if (!row.accepts(value)) {
        refuse(place + " is " + excerptOf(json::serialize(value)) + "; expected is " +
               std::string(row.expected));
    }
    if (kind == ValueKind::elements) checkElements(value.get_array(), place);
}

void checkKeyIsKnown(std::string_view name, std::span<const BodyKey> keys,
                     const std::string& place) {
    if (std::ranges::find(keys, name, &BodyKey::name) == keys.end()) {
        refuse(place + " has the unexpected key '" + excerptOf(name) + "'; known are " +
               namesOf(keys));
    }
}

const json::object& checkedObject(const json::value& value, std::span<const BodyKey> keys,
                                  const std::string& place) {
    if (!value.is_object())
        refuse(place + " is " + excerptOf(json::serialize(value)) + "; expected is an object");
    const json::object& object = value.get_object();
    for (const auto& member : object)
        checkKeyIsKnown(member.key(), keys, place);
    for (const BodyKey& key : keys) {
        const json::value* found = object.if_contains(key.name);
        if (found != nullptr)
            checkValue(*found, key.kind, place + "." + std::string(key.name));
        else if (key.isRequired)
            refuse(place + " lacks the key '" + std::string(key.name) + "'");
    }
    return object;
}

void checkContentType(std::string_view contentType) {
    if (KestrinInternal::isMediaType(contentType, "application/json")) return;
    throw Problem(ProblemKind::unsupportedMediaType,
                  contentType.empty() ? "the body has no Content-Type; expected is application/json"
                                      : "the body's Content-Type is '" + excerptOf(contentType) +
                                            "'; expected is application/json");
}

void checkContentEncoding(std::string_view encoding) {
    if (encoding.empty() || KestrinInternal::equalsIgnoringCase(encoding, "identity")) return;
    throw Problem(ProblemKind::unsupportedMediaType,
                  "the body's Content-Encoding is '" + excerptOf(encoding) + "'; expected is none");
}

json::value parsedJSON(std::string_view text) {
    json::error_code error;
    json::value value = json::parse(text, error);
    if (error)
        throw Problem(ProblemKind::malformedJSON, "the body is not JSON: " + error.message());
    return value;
}

}  // namespace

json::object parsedBody(const RawBody& body, const BodyShape& shape) {
    if (body.text.empty()) {
        if (shape.rule != BodyRule::required) return {};
        throw Problem(ProblemKind::missingBody,
                      "the body is empty; expected is a JSON object with " + namesOf(shape.keys));
    }
    if (shape.rule == BodyRule::none) {
        throw Problem(ProblemKind::unexpectedBody, "the request has a body of " +
                                                       std::to_string(body.text.size()) +
                                                       " bytes; expected is none");
    }
    checkContentType(body.contentType);
    checkContentEncoding(body.contentEncoding);
    return checkedObject(parsedJSON(body.text), shape.keys, "the body");
}

std::optional<std::string> textIn(const json::object& body, std::string_view key) {
    const json::value* value = body.if_contains(key);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value->get_string());
}

std::optional<bool> booleanIn(const json::object& body, std::string_view key) {
    const json::value* value = body.if_contains(key);
    return value == nullptr ? std::nullopt : std::optional(value->get_bool());
}

std::optional<bool> truthTextIn(const json::object& body, std::string_view key) {
    const auto text = textIn(body, key);
    return text ? std::optional(*text == "true") : std::nullopt;
}

std::optional<std::int64_t> decimalTextIn(const json::object& body, std::string_view key) {
    const auto text = textIn(body, key);
    return text ? decimalValue(*text) : std::nullopt;
}

}  // namespace KestrinProfileServer
