#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <utility>
#include <vector>

#include <HalvardSling/json/internal/JSONDocument.hpp>
#include <HalvardSling/json/internal/JSONNumber.hpp>
#include <internal/Hex.hpp>

namespace HalvardSling::internal {

namespace {

using Kind = JSONNode::Kind;

bool areEqualArrays(JSONView left, JSONView right) {
    JSONView leftItem = left.first();
    JSONView rightItem = right.first();
    for (std::size_t i = 0; i < left.count(); ++i) {
        if (!areEqual(leftItem, rightItem)) return false;
        leftItem = leftItem.next();
        rightItem = rightItem.next();
    }
    return true;
}

using Member = std::pair<std::string_view, JSONView>;

std::vector<Member> sortedMembers(JSONView dictionary) {
    std::vector<Member> members;
    members.reserve(dictionary.count());
    JSONView key = dictionary.first();
    for (std::size_t i = 0; i < dictionary.count(); ++i) {
        members.emplace_back(key.text(), key.next());
        key = key.next().next();
    }
    std::ranges::sort(members, {}, &Member::first);
    return members;
}

bool areEqualDictionaries(JSONView left, JSONView right) {
    return std::ranges::equal(sortedMembers(left), sortedMembers(right),
                              [](const Member& a, const Member& b) {
                                  return a.first == b.first && areEqual(a.second, b.second);
                              });
}

}  // namespace

JSONKind JSONView::jsonKind() const noexcept {
    switch (kind()) {
        case Kind::null:
            return JSONKind::null;
        case Kind::boolean:
            return JSONKind::boolean;
        case Kind::integer:
            return JSONKind::integer;
        case Kind::number:
            return JSONKind::number;
        case Kind::array:
            return JSONKind::array;
        case Kind::dictionary:
            return JSONKind::dictionary;
        default:
            return JSONKind::text;
    }
}

/// Whether a member of this dictionary begins here, and has this key. Behind the members stand the
/// repeated keys, which no value follows.
bool JSONView::isMember(const JSONNode* member, std::string_view key) const noexcept {
    return member + 1 < node->next() && member[1].kind != Kind::key &&
           member->textLength() == key.size() && textOf(*member) == key;
}

const JSONNode* JSONView::findInTable(std::string_view key) const noexcept {
    const JSONNode* const nodes = document->nodes.data();
    const std::uint32_t dictionary = document->indexOf(node);
    const auto found = [&](const JSONNode* member) {
        document->lookup.remember({dictionary, document->indexOf(member)});
        return member + 1;
    };
    if (const auto last = document->lookup.last();
        last.member != 0 && last.dictionary == dictionary) {
        const JSONNode* const member = nodes + last.member;
        if (isMember(member, key)) return member + 1;
        const JSONNode* const following = member[1].next();
        if (isMember(following, key)) return found(following);
    }
    const JSONNode* member = node + 1;
    for (std::size_t left = count(); left > 0; --left, member = member[1].next())
        if (isMember(member, key)) return found(member);
    return nullptr;
}

bool areEqual(JSONView left, JSONView right) {
    if (left.kind() != right.kind()) return false;
    if (left.kind() == Kind::number) return areEqualNumbers(left.text(), right.text());
    if (left.node->hasCharacters()) return left.text() == right.text();
    if (left.node->value != right.node->value) return false;
    if (left.kind() == Kind::array) return areEqualArrays(left, right);
    return left.kind() != Kind::dictionary || areEqualDictionaries(left, right);
}

namespace {

void appendEscaped(std::string& out, char c) {
    static constexpr std::string_view characters = "\"\\\b\f\n\r\t";
    static constexpr std::string_view letters = "\"\\bfnrt";
    out += '\\';
    if (const auto at = characters.find(c); at != std::string_view::npos) {
        out += letters[at];
        return;
    }
    out += "u00";
    KestrinInternal::appendHex(out, c, KestrinInternal::lowerHexDigits);
}

void appendText(std::string& out, std::string_view text) {
    out += '"';
    for (const char c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\')
            appendEscaped(out, c);
        else
            out += c;
    out += '"';
}

void appendInteger(std::string& out, std::int64_t integer) {
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), integer).ptr;
    out.append(digits.data(), end);
}

void append(std::string& out, JSONView value);

void appendItems(std::string& out, JSONView container) {
    const bool isDictionary = container.kind() == Kind::dictionary;
    out += isDictionary ? '{' : '[';
    JSONView item = container.first();
    for (std::size_t i = 0; i < container.count(); ++i) {
        if (i > 0) out += ',';
        if (isDictionary) {
            appendText(out, item.text());
            out += ':';
            item = item.next();
        }
        append(out, item);
        item = item.next();
    }
    out += isDictionary ? '}' : ']';
}

void append(std::string& out, JSONView value) {
    switch (value.kind()) {
        case Kind::null:
            out += "null";
            break;
        case Kind::boolean:
            out += value.node->value != 0 ? "true" : "false";
            break;
        case Kind::integer:
            appendInteger(out, std::bit_cast<std::int64_t>(value.node->value));
            break;
        case Kind::number:
            out += value.text();
            break;
        case Kind::array:
        case Kind::dictionary:
            appendItems(out, value);
            break;
        default:
            appendText(out, value.text());
    }
}

}  // namespace

std::string jsonText(JSONView value) {
    std::string out;
    // A typical record takes so many characters for each key and value.
    out.reserve(std::size_t{16} * value.node->extent);
    append(out, value);
    return out;
}

}  // namespace HalvardSling::internal
