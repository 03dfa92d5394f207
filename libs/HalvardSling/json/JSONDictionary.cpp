#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <utility>

#include <boost/container/small_vector.hpp>
#include <boost/container/vector.hpp>
#include <boost/json/basic_parser_impl.hpp>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace HalvardSling {

namespace {

/// One value of a document. The values stand in one flat sequence: a container is followed by all
/// that is in it, and a dictionary's key by its value. Sizes are relative, so that a value can be
/// copied to another document as it stands. It has no defaults, so that room for many is made
/// without writing to it.
struct Node {
    enum class Kind : std::uint8_t {
        null,
        boolean,
        integer,
        unsignedInteger,
        real,
        text,
        key,
        array,
        dictionary
    };

    Kind kind;
    /// Where a text's characters are: in the source text, or in the document's own store.
    bool inStore;
    /// How many nodes the value takes, itself included.
    std::uint32_t extent;
    /// The number, the Boolean, a container's item count; of a text the place of its first
    /// character in the lower half, its length in the upper half.
    std::uint64_t value;
};
static_assert(sizeof(Node) == 16);

constexpr bool isText(const Node& node) noexcept {
    return node.kind == Node::Kind::text || node.kind == Node::Kind::key;
}

constexpr std::uint64_t textValue(std::size_t place, std::size_t length) noexcept {
    return std::uint64_t{length} << 32 | place;
}

constexpr std::size_t placeOf(const Node& text) noexcept {
    return text.value & 0xFFFF'FFFF;
}

constexpr std::size_t lengthOf(const Node& text) noexcept {
    return text.value >> 32;
}

std::uint64_t wordAt(const char* characters) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, characters, sizeof word);
    return word;
}

/// Whether two texts of one length are the same. Keys are short: calling memcmp would cost several
/// times what comparing does.
bool areSame(const char* left, const char* right, std::size_t length) noexcept {
    constexpr std::size_t step = sizeof(std::uint64_t);
    if (length < step) return std::equal(left, left + length, right, std::equal_to<char>{});
    for (std::size_t at = 0; at + step < length; at += step)
        if (wordAt(left + at) != wordAt(right + at)) return false;
    return wordAt(left + length - step) == wordAt(right + length - step);
}

constexpr JSONKind kindOf(const Node& node) noexcept {
    switch (node.kind) {
        case Node::Kind::null:
            return JSONKind::null;
        case Node::Kind::boolean:
            return JSONKind::boolean;
        case Node::Kind::integer:
            return JSONKind::integer;
        case Node::Kind::unsignedInteger:
        case Node::Kind::real:
            return JSONKind::number;
        case Node::Kind::array:
            return JSONKind::array;
        case Node::Kind::dictionary:
            return JSONKind::dictionary;
        case Node::Kind::text:
        case Node::Kind::key:
            break;
    }
    return JSONKind::text;
}

}  // namespace

/// A parsed or built JSON value: its nodes, and the characters of its texts.
class JSONDocument {
  public:
    boost::container::vector<Node> nodes;
    std::shared_ptr<const std::string> source;  ///< null where it was built
    std::string store;  ///< texts that do not stand in the source as they are

    [[nodiscard]] std::string_view textOf(const Node& node) const noexcept {
        const std::string& characters = node.inStore ? store : *source;
        return {characters.data() + placeOf(node), lengthOf(node)};
    }

    /// A dictionary's value under a key; null where there is none.
    [[nodiscard]] const Node* find(std::uint32_t dictionary, std::string_view key) const noexcept {
        const Node* const top = nodes.data() + dictionary;
        const Node* const end = top + top->extent;
        for (const Node* at = top + 1; at < end;) {
            if (lengthOf(*at) == key.size() && areSame(textOf(*at).data(), key.data(), key.size()))
                return at + 1;
            if (at[1].extent == 1) [[likely]]
                at += 2;
            else
                at += 1 + at[1].extent;
        }
        return nullptr;
    }

    [[nodiscard]] std::uint32_t indexOf(const Node* node) const noexcept {
        return static_cast<std::uint32_t>(node - nodes.data());
    }

    void appendText(Node::Kind kind, std::string_view text) {
        nodes.push_back({.kind = kind,
                         .inStore = true,
                         .extent = 1,
                         .value = textValue(store.size(), text.size())});
        store.append(text);
    }

    void append(Node::Kind kind, std::uint64_t value) {
        nodes.push_back({.kind = kind, .inStore = false, .extent = 1, .value = value});
    }

    /// Appends a copy of another document's value and everything in it.
    void append(const JSONDocument& other, std::uint32_t node) {
        const std::uint32_t count = other.nodes[node].extent;
        for (std::uint32_t at = node; at < node + count; ++at) {
            const Node& each = other.nodes[at];
            if (isText(each))
                appendText(each.kind, other.textOf(each));
            else
                nodes.push_back(each);
        }
    }

    /// Removes the member whose value stands at `value` from the top dictionary.
    void removeMember(std::uint32_t value) {
        const std::uint32_t count = 1 + nodes[value].extent;
        const auto first = nodes.begin() + value - 1;
        nodes.erase(first, first + count);
        nodes.front().extent -= count;
        nodes.front().value -= 1;
    }
};

namespace {

using Kind = Node::Kind;

const JSONDocument& emptyDocument() {
    static const JSONDocument empty{
        .nodes = {{.kind = Kind::dictionary, .inStore = false, .extent = 1, .value = 0}},
        .source = nullptr,
        .store = {}};
    return empty;
}

/// What Boost.JSON's parser calls for each event: it fills a document.
struct Filler {
    static constexpr std::size_t max_object_size = std::numeric_limits<std::uint32_t>::max();
    static constexpr std::size_t max_array_size = max_object_size;
    static constexpr std::size_t max_key_size = max_object_size;
    static constexpr std::size_t max_string_size = max_object_size;

    using Error = boost::system::error_code;
    using View = boost::json::string_view;

    Filler(JSONDocument& of, std::string_view text) : document(&of), source(text) {
        // A typical list has a value or key every 11 bytes.
        makeRoom(source.size() / 11 + 8);
    }

    JSONDocument* document;
    std::string_view source;
    Node* next = nullptr;  // where the next node goes; those up to `roomEnd` stand ready
    Node* roomEnd = nullptr;
    boost::container::small_vector<std::uint32_t, 16> open;
    std::size_t partsAt = 0;
    bool inParts = false;

    [[nodiscard]] std::size_t count() const {
        return static_cast<std::size_t>(next - document->nodes.data());
    }

    [[gnu::noinline]] void makeRoom(std::size_t more) {
        const std::size_t filled = next == nullptr ? 0 : count();
        document->nodes.resize(filled + more, boost::container::default_init);
        next = document->nodes.data() + filled;
        roomEnd = next + more;
    }

    // This is what happens for each value and key, so a node is filled where it stands: one that is
    // made elsewhere and copied in one piece makes the processor wait for its parts.
    [[gnu::always_inline]] bool add(Kind kind, std::uint64_t value, bool inStore = false) {
        if (next == roomEnd) [[unlikely]]
            makeRoom(count());
        Node& node = *next++;
        node.kind = kind;
        node.inStore = inStore;
        node.extent = 1;
        node.value = value;
        return true;
    }

    // Texts without an escape are given in one piece that stands in the source; of any other some
    // pieces stand elsewhere, so they are gathered in the document's store.
    bool part(View piece) {
        if (!inParts) partsAt = document->store.size();
        inParts = true;
        document->store.append(piece.data(), piece.size());
        return true;
    }

    [[gnu::always_inline]] bool whole(Kind kind, View piece) {
        // Of a pointer into anything else the difference is larger than the text.
        const auto offset = std::bit_cast<std::uintptr_t>(piece.data()) -
                            std::bit_cast<std::uintptr_t>(source.data());
        if (!inParts && offset < source.size()) return add(kind, textValue(offset, piece.size()));
        return gathered(kind, piece);
    }

    [[gnu::noinline]] bool gathered(Kind kind, View piece) {
        part(piece);
        inParts = false;
        return add(kind, textValue(partsAt, document->store.size() - partsAt), true);
    }

    bool begin(Kind kind) {
        open.push_back(static_cast<std::uint32_t>(count()));
        return add(kind, 0);
    }

    bool end(std::size_t items) {
        Node& node = document->nodes[open.back()];
        node.extent = static_cast<std::uint32_t>(count() - open.back());
        node.value = items;
        open.pop_back();
        return true;
    }

    // The names that the parser calls.
    bool on_document_begin(Error&) { return true; }
    bool on_document_end(Error&) {
        document->nodes.resize(count(), boost::container::default_init);
        return true;
    }
    bool on_object_begin(Error&) { return begin(Kind::dictionary); }
    bool on_object_end(std::size_t items, Error&) { return end(items); }
    bool on_array_begin(Error&) { return begin(Kind::array); }
    bool on_array_end(std::size_t items, Error&) { return end(items); }
    bool on_key_part(View piece, std::size_t, Error&) { return part(piece); }
    bool on_key(View piece, std::size_t, Error&) { return whole(Kind::key, piece); }
    bool on_string_part(View piece, std::size_t, Error&) { return part(piece); }
    bool on_string(View piece, std::size_t, Error&) { return whole(Kind::text, piece); }
    bool on_number_part(View, Error&) { return true; }
    bool on_int64(std::int64_t value, View, Error&) {
        return add(Kind::integer, std::bit_cast<std::uint64_t>(value));
    }
    bool on_uint64(std::uint64_t value, View, Error&) { return add(Kind::unsignedInteger, value); }
    bool on_double(double value, View, Error& error) {
        // The parser makes infinity of 1e999, which no JSON text can say.
        if (!std::isfinite(value)) error = boost::json::error::exponent_overflow;
        return std::isfinite(value) && add(Kind::real, std::bit_cast<std::uint64_t>(value));
    }
    bool on_bool(bool value, Error&) { return add(Kind::boolean, value ? 1 : 0); }
    bool on_null(Error&) { return add(Kind::null, 0); }
    bool on_comment_part(View, Error&) { return true; }
    bool on_comment(View, Error&) { return true; }
};

JSONFailure failureAt(std::string_view text, std::size_t offset, std::string reason) {
    const std::string_view before = text.substr(0, offset);
    const auto lastBreak = before.rfind('\n');
    return {.reason = std::move(reason),
            .offset = offset,
            .line = 1 + static_cast<std::size_t>(std::ranges::count(before, '\n')),
            .column = lastBreak == std::string_view::npos ? offset + 1 : offset - lastBreak};
}

void appendEscaped(std::string& out, std::string_view text) {
    static constexpr std::string_view digits = "0123456789abcdef";
    static constexpr std::string_view named = "\"\"\\\\\bb\ff\nn\rr\tt";
    out += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && c != '"' && c != '\\') {
            out += c;
            continue;
        }
        std::size_t at = 0;
        while (at < named.size() && named[at] != c)
            at += 2;
        if (at < named.size())
            (out += '\\') += named[at + 1];
        else
            ((out += "\\u00") += digits[byte >> 4]) += digits[byte & 15];
    }
    out += '"';
}

template <class Number>
void appendNumber(std::string& out, Number number) {
    std::array<char, 32> digits{};
    const auto written = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    out.append(digits.data(), written.ptr);
}

/// Writes the value at `at`; returns the index after it.
std::uint32_t write(std::string& out, const JSONDocument& document, std::uint32_t at);

std::uint32_t writeItems(std::string& out, const JSONDocument& document, std::uint32_t at) {
    const Node& container = document.nodes[at];
    const bool isDictionary = container.kind == Kind::dictionary;
    const std::uint32_t end = at + container.extent;
    out += isDictionary ? '{' : '[';
    for (std::uint32_t item = at + 1; item < end;) {
        if (item > at + 1) out += ',';
        if (isDictionary) {
            appendEscaped(out, document.textOf(document.nodes[item++]));
            out += ':';
        }
        item = write(out, document, item);
    }
    out += isDictionary ? '}' : ']';
    return end;
}

std::uint32_t write(std::string& out, const JSONDocument& document, std::uint32_t at) {
    const Node& node = document.nodes[at];
    switch (node.kind) {
        case Kind::array:
        case Kind::dictionary:
            return writeItems(out, document, at);
        case Kind::null:
            out += "null";
            break;
        case Kind::boolean:
            out += node.value != 0 ? "true" : "false";
            break;
        case Kind::integer:
            appendNumber(out, std::bit_cast<std::int64_t>(node.value));
            break;
        case Kind::unsignedInteger:
            appendNumber(out, node.value);
            break;
        case Kind::real:
            appendNumber(out, std::bit_cast<double>(node.value));
            break;
        case Kind::text:
        case Kind::key:
            appendEscaped(out, document.textOf(node));
            break;
    }
    return at + 1;
}

/// A value of a document, for comparison.
struct Place {
    const JSONDocument& document;
    std::uint32_t at;

    [[nodiscard]] const Node& node() const { return document.nodes[at]; }
};

bool equalValues(Place left, Place right);

bool equalArrays(Place left, Place right) {
    const std::uint32_t end = left.at + left.node().extent;
    for (++left.at, ++right.at; left.at < end;) {
        if (!equalValues(left, right)) return false;
        left.at += left.node().extent;
        right.at += right.node().extent;
    }
    return true;
}

bool equalDictionaries(Place left, Place right) {
    const std::uint32_t end = left.at + left.node().extent;
    for (Place key{left.document, left.at + 1}; key.at < end;) {
        const Place value{left.document, key.at + 1};
        const Node* const other = right.document.find(right.at, left.document.textOf(key.node()));
        if (other == nullptr ||
            !equalValues(value, {right.document, right.document.indexOf(other)}))
            return false;
        key.at = value.at + value.node().extent;
    }
    return true;
}

bool equalValues(Place left, Place right) {
    const Node& a = left.node();
    const Node& b = right.node();
    if (a.kind != b.kind) return false;
    if (isText(a)) return left.document.textOf(a) == right.document.textOf(b);
    if (a.kind == Kind::real)
        return std::bit_cast<double>(a.value) == std::bit_cast<double>(b.value);
    if (a.value != b.value) return false;
    if (a.kind == Kind::array) return equalArrays(left, right);
    if (a.kind == Kind::dictionary) return equalDictionaries(left, right);
    return true;
}

}  // namespace

std::string_view name(JSONKind kind) noexcept {
    static constexpr std::array<std::string_view, 7> names{
        "null", "a Boolean", "an integer", "a number", "a text", "an array", "a dictionary"};
    return names[static_cast<std::size_t>(kind)];
}

std::string JSONFailure::text() const {
    return reason + " at line " + std::to_string(line) + ", column " + std::to_string(column);
}

JSONDictionary::JSONDictionary() noexcept = default;
JSONDictionary::JSONDictionary(JSONDictionary&& other) noexcept = default;
JSONDictionary& JSONDictionary::operator=(JSONDictionary&& other) noexcept = default;
JSONDictionary::~JSONDictionary() = default;

JSONDictionary::JSONDictionary(const JSONDictionary& other)
    : shared_(other.shared_),
      built_(other.built_ ? std::make_unique<JSONDocument>(*other.built_) : nullptr),
      node_(other.node_) {}

JSONDictionary& JSONDictionary::operator=(const JSONDictionary& other) {
    return *this = JSONDictionary(other);
}

JSONDictionary::JSONDictionary(std::shared_ptr<const JSONDocument> document,
                               std::uint32_t node) noexcept
    : shared_(std::move(document)), node_(node) {}

std::variant<JSONDictionary, JSONFailure> JSONDictionary::parse(
    std::shared_ptr<const std::string> text, std::size_t maxDepth) {
    if (text->size() > std::numeric_limits<std::uint32_t>::max())
        return failureAt({}, 0, "a text of more than 4 GiB");

    boost::json::parse_options options;
    options.max_depth = maxDepth;
    auto document = std::make_shared<JSONDocument>();
    document->source = std::move(text);
    const std::string& source = *document->source;
    boost::json::basic_parser<Filler> parser(options, *document, source);

    boost::system::error_code error;
    const std::size_t read = parser.write_some(false, source.data(), source.size(), error);
    if (!error && read < source.size()) error = boost::json::error::extra_data;
    if (error) return failureAt(source, read, error.message());
    if (document->nodes.front().kind != Kind::dictionary)
        return failureAt(source, 0,
                         "the top is " + std::string(name(kindOf(document->nodes.front()))) +
                             ", expected a dictionary,");
    return JSONDictionary(std::move(document), 0);
}

std::variant<JSONDictionary, JSONFailure> JSONDictionary::parse(std::string_view text,
                                                                std::size_t maxDepth) {
    return parse(std::make_shared<const std::string>(text), maxDepth);
}

const JSONDocument& JSONDictionary::document() const noexcept {
    if (shared_) return *shared_;
    return built_ ? *built_ : emptyDocument();
}

namespace {

/// The node under a key where it has the wanted kind, else null.
const Node* wanted(const JSONDocument& document, std::uint32_t dictionary, std::string_view key,
                   Kind kind) {
    const Node* const node = document.find(dictionary, key);
    return node != nullptr && node->kind == kind ? node : nullptr;
}

/// Whether every item of an array has this kind.
bool holdsOnly(const Node* array, Kind kind) {
    const Node* const end = array + array->extent;
    for (const Node* item = array + 1; item < end; item += item->extent)
        if (item->kind != kind) return false;
    return true;
}

}  // namespace

std::optional<JSONKind> JSONDictionary::kind(std::string_view key) const {
    const Node* const node = document().find(node_, key);
    if (node == nullptr) return std::nullopt;
    return kindOf(*node);
}

std::optional<std::string_view> JSONDictionary::text(std::string_view key) const {
    const JSONDocument& all = document();
    const Node* const node = wanted(all, node_, key, Kind::text);
    if (node == nullptr) return std::nullopt;
    return all.textOf(*node);
}

std::optional<std::int64_t> JSONDictionary::integer(std::string_view key) const {
    const Node* const node = wanted(document(), node_, key, Kind::integer);
    if (node == nullptr) return std::nullopt;
    return std::bit_cast<std::int64_t>(node->value);
}

std::optional<bool> JSONDictionary::boolean(std::string_view key) const {
    const Node* const node = wanted(document(), node_, key, Kind::boolean);
    if (node == nullptr) return std::nullopt;
    return node->value != 0;
}

/// This dictionary's document as a shared one, and where a node of it stands there.
std::shared_ptr<const JSONDocument> JSONDictionary::shared(std::uint32_t node,
                                                           std::uint32_t& sharedNode) const {
    sharedNode = node;
    if (shared_) return shared_;
    sharedNode = 0;
    auto copy = std::make_shared<JSONDocument>();
    copy->append(document(), node);
    return copy;
}

std::optional<JSONDictionary> JSONDictionary::dictionary(std::string_view key) const {
    const Node* const node = wanted(document(), node_, key, Kind::dictionary);
    if (node == nullptr) return std::nullopt;
    std::uint32_t at = 0;
    auto document = shared(this->document().indexOf(node), at);
    return JSONDictionary(std::move(document), at);
}

std::optional<JSONDictionaryList> JSONDictionary::dictionaries(std::string_view key) const {
    const Node* const node = wanted(document(), node_, key, Kind::array);
    if (node == nullptr || !holdsOnly(node, Kind::dictionary)) return std::nullopt;
    std::uint32_t at = 0;
    const std::size_t size = node->value;
    auto document = shared(this->document().indexOf(node), at);
    return JSONDictionaryList(std::move(document), at + 1, size);
}

std::optional<std::vector<std::string_view>> JSONDictionary::texts(std::string_view key) const {
    const Node* const array = wanted(document(), node_, key, Kind::array);
    if (array == nullptr || !holdsOnly(array, Kind::text)) return std::nullopt;
    std::vector<std::string_view> all;
    all.reserve(array->value);
    for (const Node* item = array + 1; item < array + array->extent; ++item)
        all.push_back(document().textOf(*item));
    return all;
}

std::vector<std::string_view> JSONDictionary::keys() const {
    const JSONDocument& all = document();
    const std::uint32_t end = node_ + all.nodes[node_].extent;
    std::vector<std::string_view> found;
    found.reserve(size());
    for (std::uint32_t at = node_ + 1; at < end; at += 1 + all.nodes[at + 1].extent)
        found.push_back(all.textOf(all.nodes[at]));
    return found;
}

std::size_t JSONDictionary::size() const noexcept {
    return document().nodes[node_].value;
}

JSONDocument& JSONDictionary::beginMember(std::string_view key) {
    remove(key);
    built_->appendText(Kind::key, key);
    return *built_;
}

void JSONDictionary::remove(std::string_view key) {
    if (!built_) {
        auto copy = std::make_unique<JSONDocument>();
        copy->append(document(), node_);
        built_ = std::move(copy);
        shared_.reset();
        node_ = 0;
    }
    while (const Node* const value = built_->find(0, key))
        built_->removeMember(built_->indexOf(value));
}

namespace {

/// Counts the member whose key and value were appended to the top dictionary.
void endMember(JSONDocument& document) {
    document.nodes.front().value += 1;
    document.nodes.front().extent = static_cast<std::uint32_t>(document.nodes.size());
}

/// Appends an array: `appendItem` appends one item.
template <class Items, class AppendItem>
void appendArray(JSONDocument& document, const Items& items, AppendItem appendItem) {
    const std::size_t at = document.nodes.size();
    document.append(Kind::array, items.size());
    for (const auto& item : items)
        appendItem(item);
    document.nodes[at].extent = static_cast<std::uint32_t>(document.nodes.size() - at);
}

}  // namespace

void JSONDictionary::setText(std::string_view key, std::string_view value) {
    JSONDocument& document = beginMember(key);
    document.appendText(Kind::text, value);
    endMember(document);
}

void JSONDictionary::setInteger(std::string_view key, std::int64_t value) {
    JSONDocument& document = beginMember(key);
    document.append(Kind::integer, std::bit_cast<std::uint64_t>(value));
    endMember(document);
}

void JSONDictionary::setBoolean(std::string_view key, bool value) {
    JSONDocument& document = beginMember(key);
    document.append(Kind::boolean, value ? 1 : 0);
    endMember(document);
}

void JSONDictionary::setDictionary(std::string_view key, const JSONDictionary& value) {
    if (&value == this) return setDictionary(key, JSONDictionary(value));
    JSONDocument& document = beginMember(key);
    document.append(value.document(), value.node_);
    endMember(document);
}

void JSONDictionary::setDictionaries(std::string_view key,
                                     const std::vector<JSONDictionary>& values) {
    JSONDocument& document = beginMember(key);
    appendArray(document, values, [&](const JSONDictionary& value) {
        document.append(value.document(), value.node_);
    });
    endMember(document);
}

void JSONDictionary::setTexts(std::string_view key, const std::vector<std::string>& values) {
    JSONDocument& document = beginMember(key);
    appendArray(document, values,
                [&](const std::string& value) { document.appendText(Kind::text, value); });
    endMember(document);
}

std::string JSONDictionary::toJSON() const {
    std::string out;
    write(out, document(), node_);
    return out;
}

bool operator==(const JSONDictionary& left, const JSONDictionary& right) {
    return equalValues({left.document(), left.node_}, {right.document(), right.node_});
}

JSONDictionaryList::JSONDictionaryList(std::shared_ptr<const JSONDocument> document,
                                       std::uint32_t first, std::size_t size) noexcept
    : document_(std::move(document)), first_(first), size_(size) {}

JSONDictionaryList::Iterator JSONDictionaryList::begin() const {
    return Iterator(JSONDictionary(document_, first_), size_);
}

JSONDictionaryList::Iterator& JSONDictionaryList::Iterator::operator++() {
    if (--left_ > 0) current_.node_ += current_.document().nodes[current_.node_].extent;
    return *this;
}

}  // namespace HalvardSling
