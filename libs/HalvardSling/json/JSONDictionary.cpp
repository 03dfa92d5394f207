#include <array>
#include <bit>
#include <utility>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <HalvardSling/json/internal/JSONDocument.hpp>
#include <HalvardSling/json/internal/JSONParser.hpp>

namespace HalvardSling {

using internal::JSONDocument;
using internal::JSONNode;
using internal::JSONView;
using Kind = JSONNode::Kind;

std::string_view name(JSONKind kind) noexcept {
    static constexpr std::array<std::string_view, 7> names{
        "null", "a Boolean", "an integer", "a number", "a text", "an array", "a dictionary"};
    return names[static_cast<std::size_t>(kind)];
}

std::string JSONFailure::text() const {
    return reason + " at line " + std::to_string(line) + ", column " + std::to_string(column);
}

JSONDictionary::JSONDictionary() noexcept = default;
JSONDictionary::~JSONDictionary() = default;

JSONDictionary::JSONDictionary(const JSONDictionary& other)
    : shared_(other.shared_),
      built_(other.built_ ? std::make_unique<Document>(*other.built_) : nullptr),
      node_(other.node_) {}

JSONDictionary::JSONDictionary(JSONDictionary&& other) noexcept
    : shared_(std::move(other.shared_)),
      built_(std::move(other.built_)),
      node_(std::exchange(other.node_, 0)) {}

JSONDictionary& JSONDictionary::operator=(const JSONDictionary& other) {
    return *this = JSONDictionary(other);
}

JSONDictionary& JSONDictionary::operator=(JSONDictionary&& other) noexcept {
    JSONDictionary moved(std::move(other));
    shared_.swap(moved.shared_);
    built_.swap(moved.built_);
    node_ = moved.node_;
    return *this;
}

JSONDictionary::JSONDictionary(std::shared_ptr<const Document> document,
                               std::uint32_t node) noexcept
    : shared_(std::move(document)), node_(node) {}

std::variant<JSONDictionary, JSONFailure> JSONDictionary::parse(
    std::shared_ptr<const std::string> text, const JSONLimits& limits) {
    auto parsed = internal::parseJSON(std::move(text), limits);
    if (auto* const failure = std::get_if<JSONFailure>(&parsed)) return std::move(*failure);
    return JSONDictionary(std::get<0>(std::move(parsed)), 0);
}

std::variant<JSONDictionary, JSONFailure> JSONDictionary::parse(std::string_view text,
                                                                const JSONLimits& limits) {
    return parse(std::make_shared<const std::string>(text), limits);
}

/// Null if the dictionary is empty because nothing was put into it.
const JSONDocument* JSONDictionary::document() const noexcept {
    return shared_ ? shared_.get() : built_.get();
}

JSONView JSONDictionary::view() const noexcept {
    static constexpr JSONNode empty(Kind::dictionary, 0);
    const Document* const all = document();
    return all != nullptr ? all->view(node_) : JSONView{&empty, nullptr};
}

namespace {

/// The value under a key if it has the wanted kind, else null.
const JSONNode* find(JSONView dictionary, std::string_view key, Kind kind) {
    const JSONNode* const node = dictionary.find(key);
    return node != nullptr && node->kind == kind ? node : nullptr;
}

/// The array under a key if every item of it has this kind, else null.
const JSONNode* findArrayOf(JSONView dictionary, std::string_view key, Kind kind) {
    const JSONNode* const array = find(dictionary, key, Kind::array);
    if (array == nullptr) return nullptr;
    const JSONNode* const end = array + array->extent;
    for (const JSONNode* item = array + 1; item < end; item += item->extent)
        if (item->kind != kind) return nullptr;
    return array;
}

}  // namespace

std::optional<JSONKind> JSONDictionary::kind(std::string_view key) const {
    const JSONView all = view();
    const JSONNode* const node = all.find(key);
    if (node == nullptr) return std::nullopt;
    return all.at(node).jsonKind();
}

std::optional<std::string_view> JSONDictionary::text(std::string_view key) const {
    const JSONView all = view();
    const JSONNode* const node = find(all, key, Kind::text);
    if (node == nullptr) return std::nullopt;
    return all.at(node).text();
}

std::optional<std::int64_t> JSONDictionary::integer(std::string_view key) const {
    const JSONNode* const node = find(view(), key, Kind::integer);
    if (node == nullptr) return std::nullopt;
    return std::bit_cast<std::int64_t>(node->value);
}

std::optional<bool> JSONDictionary::boolean(std::string_view key) const {
    const JSONNode* const node = find(view(), key, Kind::boolean);
    if (node == nullptr) return std::nullopt;
    return node->value != 0;
}

/// A dictionary or array of this document, as a dictionary that shares the document.
JSONDictionary JSONDictionary::shared(const JSONNode* container) const {
    const std::uint32_t node = document()->indexOf(container);
    if (shared_) return {shared_, node};
    auto copy = std::make_shared<Document>();
    copy->appendCopy(*built_, node);
    return {std::move(copy), 0};
}

std::optional<JSONDictionary> JSONDictionary::dictionary(std::string_view key) const {
    const JSONNode* const node = find(view(), key, Kind::dictionary);
    if (node == nullptr) return std::nullopt;
    return shared(node);
}

std::optional<JSONDictionaryList> JSONDictionary::dictionaries(std::string_view key) const {
    const JSONNode* const array = findArrayOf(view(), key, Kind::dictionary);
    if (array == nullptr) return std::nullopt;
    const std::size_t size = view().at(array).count();
    JSONDictionary first = shared(array);
    ++first.node_;
    return JSONDictionaryList(std::move(first), size);
}

std::optional<std::vector<std::string_view>> JSONDictionary::texts(std::string_view key) const {
    const JSONView all = view();
    const JSONNode* const array = findArrayOf(all, key, Kind::text);
    if (array == nullptr) return std::nullopt;
    std::vector<std::string_view> found;
    found.reserve(all.at(array).count());
    for (const JSONNode* item = array + 1; item < array + array->extent; ++item)
        found.push_back(all.at(item).text());
    return found;
}

std::vector<std::string_view> JSONDictionary::keys() const {
    const JSONView all = view();
    std::vector<std::string_view> found;
    found.reserve(all.count());
    JSONView key = all.first();
    for (std::size_t i = 0; i < all.count(); ++i, key = key.next().next())
        found.push_back(key.text());
    return found;
}

std::vector<std::string_view> JSONDictionary::repeatedKeys() const {
    const JSONView all = view();
    JSONView key = all.first();
    for (std::size_t i = 0; i < all.count(); ++i)
        key = key.next().next();
    std::vector<std::string_view> found;
    for (; key.node < all.next().node; key = key.next())
        found.push_back(key.text());
    return found;
}

std::size_t JSONDictionary::size() const noexcept {
    return view().count();
}

void JSONDictionary::appendTo(Document& to) const {
    if (const Document* const all = document())
        to.appendCopy(*all, node_);
    else
        to.append(Kind::dictionary, 0);
}

std::unique_ptr<JSONDocument> JSONDictionary::copyWithout(std::string_view key) const {
    auto copy = std::make_unique<Document>();
    const JSONView all = view();
    // Room for a typical record, that is set member by member.
    copy->nodes.reserve(all.node->extent + 10);
    copy->append(Kind::dictionary, 0);
    JSONView member = all.first();
    for (std::size_t i = 0; i < all.count(); ++i, member = member.next().next())
        if (member.text() != key)
            copy->appendMember(member.text(), [&](Document& to) {
                to.appendCopy(*document(), document()->indexOf(member.next().node));
            });
    return copy;
}

void JSONDictionary::adopt(std::unique_ptr<Document> document) noexcept {
    shared_.reset();
    built_ = std::move(document);
    node_ = 0;
}

void JSONDictionary::remove(std::string_view key) {
    if (view().find(key) != nullptr) adopt(copyWithout(key));
}

/// The arguments may be views of the document, so it lives until they were read.
template <class AppendValue>
void JSONDictionary::set(std::string_view key, const AppendValue& appendValue) {
    if (built_ && view().find(key) == nullptr) return built_->appendMember(key, appendValue);
    auto changed = copyWithout(key);
    changed->appendMember(key, appendValue);
    adopt(std::move(changed));
}

namespace {

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
    // Appending the key moves the document's own texts, of which the value may be one.
    set(key,
        [text = std::string(value)](Document& document) { document.appendText(Kind::text, text); });
}

void JSONDictionary::setInteger(std::string_view key, std::int64_t value) {
    set(key, [&](Document& document) {
        document.append(Kind::integer, std::bit_cast<std::uint64_t>(value));
    });
}

void JSONDictionary::setBoolean(std::string_view key, bool value) {
    set(key, [&](Document& document) { document.append(Kind::boolean, value ? 1 : 0); });
}

void JSONDictionary::setDictionary(std::string_view key, const JSONDictionary& value) {
    set(key, [&](Document& document) { value.appendTo(document); });
}

void JSONDictionary::setDictionaries(std::string_view key,
                                     const std::vector<JSONDictionary>& values) {
    set(key, [&](Document& document) {
        appendArray(document, values,
                    [&](const JSONDictionary& value) { value.appendTo(document); });
    });
}

void JSONDictionary::setTexts(std::string_view key, const std::vector<std::string>& values) {
    set(key, [&](Document& document) {
        appendArray(document, values,
                    [&](const std::string& value) { document.appendText(Kind::text, value); });
    });
}

std::string JSONDictionary::toJSON() const {
    return internal::jsonText(view());
}

bool operator==(const JSONDictionary& left, const JSONDictionary& right) {
    return areEqual(left.view(), right.view());
}

JSONDictionaryList::JSONDictionaryList(JSONDictionary first, std::size_t size) noexcept
    : first_(std::move(first)), size_(size) {}

JSONDictionaryList::Iterator JSONDictionaryList::begin() const {
    return Iterator(first_, size_);
}

JSONDictionaryList::Iterator& JSONDictionaryList::Iterator::operator++() {
    if (--left_ > 0) current_.node_ += current_.view().node->extent;
    return *this;
}

}  // namespace HalvardSling
