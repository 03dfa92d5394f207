#include <algorithm>
#include <array>

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

#include <internal/ASCII.hpp>
#include <internal/Number.hpp>
#include <internal/Table.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Body.hpp>

namespace KestrinProfileServer {

namespace json = boost::json;

namespace {

constexpr std::array<BodyKey, 2> elementKeys{{
    {"id", ValueKind::identifier, true},
    {"type", ValueKind::text},
}};
constexpr std::size_t mostKeys = 8;

/// A value that came: a text, a truth, or else what was written.
struct Scalar {
    enum class Kind { text, boolean, other } kind = Kind::other;
    std::string_view text;
};

bool isTrue(const Scalar& value) {
    return value.text == "true";
}

/// How a message shows it.
std::string shown(const Scalar& value) {
    if (value.kind != Scalar::Kind::text) return excerptOf(value.text);
    return excerptOf(json::serialize(json::string_view(value.text)));
}

bool isText(const Scalar& value) {
    return value.kind == Scalar::Kind::text && value.text.size() <= longestText;
}

bool isOneOf(const Scalar& value, std::initializer_list<std::string_view> texts) {
    return value.kind == Scalar::Kind::text && std::ranges::find(texts, value.text) != texts.end();
}

/// How a kind of value is recognised and what a message calls it.
struct KindRow {
    ValueKind kind;
    bool (*accepts)(const Scalar&);
    std::string_view expected;
};

constexpr std::array<KindRow, 7> kindTable{{
    {ValueKind::text, isText, "a text of at most 2048 bytes"},
    {ValueKind::identifier,
     [](const Scalar& value) { return isText(value) && !value.text.empty(); },
     "a text of 1 to 2048 bytes"},
    {ValueKind::boolean, [](const Scalar& value) { return value.kind == Scalar::Kind::boolean; },
     "true or false (not as text)"},
    {ValueKind::truthText, [](const Scalar& value) { return isOneOf(value, {"true", "false"}); },
     R"(the text "true" or "false")"},
    {ValueKind::decimalText,
     [](const Scalar& value) {
         return value.kind == Scalar::Kind::text &&
                KestrinInternal::decimalNumber(value.text).has_value();
     },
     R"(a decimal number as text, like "42", from 0 to 9007199254740991)"},
    {ValueKind::termText, [](const Scalar& value) { return isOneOf(value, {"TERM"}); },
     R"(the text "TERM")"},
    {ValueKind::elements, [](const Scalar&) { return false; }, "an array of objects"},
}};
static_assert(KestrinInternal::isInOrder(kindTable, &KindRow::kind));

std::string namesOf(std::span<const BodyKey> keys) {
    std::string names;
    for (const BodyKey& key : keys)
        names += (names.empty() ? "'" : ", '") + std::string(key.name) + "'";
    return names;
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

}  // namespace

/// Takes the events of a JSON parser and fills a body from them, so that no more is kept of a text
/// than what the shape allows. After the first fault the text need only be JSON.
class BodyReader {
  public:
    // NOLINTBEGIN(readability-identifier-naming): the parser's names.
    static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
    static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);

    explicit BodyReader(std::span<const BodyKey> keys) : object_{keys} {}

    /// The body; throws the first fault.
    [[nodiscard]] Body finished() {
        if (fault_) throw Problem(*fault_);
        return std::move(body_);
    }

    bool on_document_begin(json::error_code&) { return true; }
    bool on_document_end(json::error_code&) { return true; }
    bool on_object_begin(json::error_code&) {
        return unlessFaulty([this] { beginObject(); });
    }
    bool on_object_end(std::size_t, json::error_code&) {
        return unlessFaulty([this] { endObject(); });
    }
    bool on_array_begin(json::error_code&) {
        return unlessFaulty([this] { beginArray(); });
    }
    bool on_array_end(std::size_t, json::error_code&) {
        return unlessFaulty([this] { level_ = Level::object; });
    }
    bool on_key_part(json::string_view text, std::size_t, json::error_code&) { return add(text); }
    bool on_key(json::string_view text, std::size_t, json::error_code&) {
        add(text);
        return unlessFaulty([this] { beginValue(); });
    }
    bool on_string_part(json::string_view text, std::size_t, json::error_code&) {
        return add(text);
    }
    bool on_string(json::string_view text, std::size_t, json::error_code&) {
        add(text);
        return unlessFaulty([this] {
            const std::string whole = std::move(text_);
            text_.clear();
            take({Scalar::Kind::text, whole});
        });
    }
    bool on_number_part(json::string_view, json::error_code&) { return true; }
    bool on_int64(std::int64_t, json::string_view text, json::error_code&) { return other(text); }
    bool on_uint64(std::uint64_t, json::string_view text, json::error_code&) { return other(text); }
    bool on_double(double, json::string_view text, json::error_code&) { return other(text); }
    bool on_bool(bool truth, json::error_code&) {
        return unlessFaulty(
            [this, truth] { take({Scalar::Kind::boolean, truth ? "true" : "false"}); });
    }
    bool on_null(json::error_code&) { return other("null"); }
    bool on_comment_part(json::string_view, json::error_code&) { return true; }
    bool on_comment(json::string_view, json::error_code&) { return true; }
    // NOLINTEND(readability-identifier-naming)

  private:
    /// What the next value belongs to.
    enum class Level { root, object, elements, element };

    /// An object that is being read.
    struct Object {
        std::span<const BodyKey> keys;
        std::array<bool, mostKeys> has{};
        const BodyKey* key = nullptr;
    };

    template <class Work>
    bool unlessFaulty(const Work& work) {
        if (!fault_) work();
        return true;
    }

    void refuse(const std::string& detail, ProblemKind kind = ProblemKind::invalidBody) {
        fault_.emplace(kind, detail);
    }

    void refuseValue(const std::string& shown) {
        const bool isOfKey = level_ == Level::object || level_ == Level::element;
        refuse(place() + " is " + shown + "; expected is " +
               (isOfKey
                    ? std::string(KestrinInternal::rowOf(kindTable, current().key->kind).expected)
                    : "an object"));
    }

    [[nodiscard]] Object& current() { return level_ == Level::element ? element_ : object_; }

    /// What a message calls the object that is being read.
    [[nodiscard]] std::string objectPlace() const {
        if (level_ == Level::root || level_ == Level::object) return "the body";
        return "the body." + std::string(object_.key->name) + "[" +
               std::to_string(body_.elements_.size()) + "]";
    }

    /// What a message calls the value that comes next.
    [[nodiscard]] std::string place() {
        const bool isOfKey = level_ == Level::object || level_ == Level::element;
        return objectPlace() + (isOfKey ? "." + std::string(current().key->name) : "");
    }

    /// Keeps no more of a text than shows that it is too long.
    bool add(json::string_view text) {
        if (!fault_)
            text_.append(text.data(), std::min(text.size(), longestText + 1 - text_.size()));
        return true;
    }

    bool other(json::string_view text) {
        return unlessFaulty([&] { take({Scalar::Kind::other, {text.data(), text.size()}}); });
    }

    void beginObject() {
        if (level_ == Level::root) {
            level_ = Level::object;
        } else if (level_ == Level::elements) {
            level_ = Level::element;
            element_ = Object{elementKeys};
            elementID_.clear();
            elementType_.reset();
        } else {
            refuseValue("an object");
        }
    }

    void endObject() {
        const Object& object = current();
        for (std::size_t at = 0; at < object.keys.size(); ++at) {
            if (object.keys[at].isRequired && !object.has[at]) {
                return refuse(objectPlace() + " lacks the key '" +
                              std::string(object.keys[at].name) + "'");
            }
        }
        if (level_ != Level::element) return;
        body_.elements_.add(elementID_, elementType_);
        level_ = Level::elements;
    }

    void beginArray() {
        const bool isExpected = level_ == Level::object && object_.key->kind == ValueKind::elements;
        if (!isExpected) return refuseValue("an array");
        level_ = Level::elements;
    }

    void beginValue() {
        const std::string name = std::move(text_);
        text_.clear();
        Object& object = current();
        const auto known = std::ranges::find(object.keys, name, &BodyKey::name);
        if (known == object.keys.end()) {
            return refuse(objectPlace() + " has the unexpected key '" + excerptOf(name) +
                          "'; known are " + namesOf(object.keys));
        }
        bool& has = object.has[static_cast<std::size_t>(known - object.keys.begin())];
        if (has) {
            return refuse(objectPlace() + " has the key '" + name + "' more than once",
                          ProblemKind::repeatedKey);
        }
        has = true;
        object.key = &*known;
    }

    void take(const Scalar& value) {
        if (level_ == Level::root || level_ == Level::elements) return refuseValue(shown(value));
        const BodyKey& key = *current().key;
        if (!KestrinInternal::rowOf(kindTable, key.kind).accepts(value))
            return refuseValue(shown(value));
        if (value.text.find('\0') != std::string_view::npos) {
            return refuse(place() + " has a zero character, which no text may have",
                          ProblemKind::zeroCharacter);
        }
        store(key, value);
    }

    void store(const BodyKey& key, const Scalar& value) {
        if (level_ == Level::object) {
            body_.values_.emplace_back(key.name, value.kind == Scalar::Kind::boolean
                                                     ? Body::Value(isTrue(value))
                                                     : Body::Value(std::string(value.text)));
        } else if (key.kind == ValueKind::identifier) {
            elementID_ = value.text;
        } else {
            elementType_ = std::string(value.text);
        }
    }

    Level level_ = Level::root;
    Object object_;
    Object element_;
    std::string text_;
    std::string elementID_;
    std::optional<std::string> elementType_;
    Body body_;
    std::optional<Problem> fault_;
};

void checkContent(const RawBody& body) {
    checkContentType(body.contentType);
    checkContentEncoding(body.contentEncoding);
}

Body parsedBody(const RawBody& body, const BodyShape& shape) {
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
    checkContent(body);
    json::basic_parser<BodyReader> parser(json::parse_options{}, shape.keys);
    json::error_code error;
    const std::size_t read = parser.write_some(false, body.text.data(), body.text.size(), error);
    if (!error && read < body.text.size()) error = json::error::extra_data;
    if (error)
        throw Problem(ProblemKind::malformedJSON, "the body is not JSON: " + error.message());
    return parser.handler().finished();
}

template <class Kind>
std::optional<Kind> Body::value(std::string_view key) const {
    const auto found = std::ranges::find(values_, key, &std::pair<std::string_view, Value>::first);
    return found == values_.end() ? std::nullopt : std::optional(std::get<Kind>(found->second));
}

std::optional<std::string> Body::text(std::string_view key) const {
    return value<std::string>(key);
}

std::optional<bool> Body::boolean(std::string_view key) const {
    return value<bool>(key);
}

std::optional<bool> Body::truthText(std::string_view key) const {
    const auto text = value<std::string>(key);
    return text ? std::optional(*text == "true") : std::nullopt;
}

std::optional<std::int64_t> Body::decimalText(std::string_view key) const {
    const auto text = value<std::string>(key);
    return text ? KestrinInternal::decimalNumber(*text) : std::nullopt;
}

}  // namespace KestrinProfileServer
