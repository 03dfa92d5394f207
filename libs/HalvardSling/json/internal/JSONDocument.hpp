#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace HalvardSling::internal {

/// One value of a document, or the key of a member. The values stand in one flat sequence: a
/// container is followed by all that is in it, a key by its value. Behind the members of a
/// dictionary stand the keys that its text repeats. Sizes are relative, so that a value can be
/// copied to another document as it stands.
struct JSONNode {
    enum class Kind : std::uint8_t { null, boolean, integer, number, text, key, array, dictionary };

    constexpr JSONNode(Kind ofKind, std::uint64_t itsValue, bool isInStore = false) noexcept
        : kind(ofKind), inStore(isInStore), value(itsValue) {}

    Kind kind;
    /// Where the characters are, if it has any: in the source text, or in the document's own store.
    bool inStore;
    /// How many nodes the value takes, itself included.
    std::uint32_t extent = 1;
    /// The integer, the Boolean, a container's item count; of characters the place of the first in
    /// the lower half, how many there are in the upper half.
    std::uint64_t value;

    /// Whether it is kept as characters: a text, a key, a number that is no integer.
    [[nodiscard]] bool hasCharacters() const noexcept {
        return kind == Kind::text || kind == Kind::key || kind == Kind::number;
    }

    [[nodiscard]] constexpr std::size_t textLength() const noexcept { return value >> 32U; }

    /// What stands after this value and all that is in it.
    [[nodiscard]] const JSONNode* next() const noexcept { return this + extent; }

    /// The value of a text's node.
    [[nodiscard]] static constexpr std::uint64_t textValue(std::size_t place,
                                                           std::size_t length) noexcept {
        return std::uint64_t{length} << 32U | place;
    }
};
static_assert(sizeof(JSONNode) == 16);

class JSONDocument;

/// A value where it stands in a document; good until the document changes or goes.
struct JSONView {
    using Kind = JSONNode::Kind;

    const JSONNode* node;
    const JSONDocument* document;

    [[nodiscard]] Kind kind() const noexcept { return node->kind; }

    [[nodiscard]] JSONKind jsonKind() const noexcept;

    /// How many items an array has, how many members a dictionary.
    [[nodiscard]] std::size_t count() const noexcept {
        return static_cast<std::size_t>(node->value);
    }

    /// The characters of a text, a key or a number that is no integer.
    [[nodiscard]] std::string_view text() const noexcept { return textOf(*node); }

    /// Another value of the same document.
    [[nodiscard]] JSONView at(const JSONNode* other) const noexcept { return {other, document}; }

    /// An array's first item, a dictionary's first key.
    [[nodiscard]] JSONView first() const noexcept { return at(node + 1); }

    /// What stands after this one and all that is in it: of a key its value.
    [[nodiscard]] JSONView next() const noexcept { return at(node->next()); }

    /// The value under a dictionary's key; null if there is none.
    [[nodiscard]] const JSONNode* find(std::string_view key) const noexcept {
        constexpr std::size_t largestRecord = 32;
        if (count() > largestRecord) return findInTable(key);
        const JSONNode* member = node + 1;
        for (std::size_t left = count(); left > 0; --left) {
            if (member->textLength() == key.size() && textOf(*member) == key) return member + 1;
            member = member[1].next();
        }
        return nullptr;
    }

  private:
    [[nodiscard]] const JSONNode* findInTable(std::string_view key) const noexcept;
    [[nodiscard]] bool isMember(const JSONNode* member, std::string_view key) const noexcept;
    [[nodiscard]] std::string_view textOf(const JSONNode& of) const noexcept;
};

/// Where the last look-up in a large dictionary found its key: the next one is tried there and
/// right behind it first, so that looking up every key in turn goes through the dictionary once.
/// Threads may overwrite each other's. A copy begins without.
class JSONLookup {
  public:
    struct Found {
        std::uint32_t dictionary;
        std::uint32_t member;  ///< its key; 0: none
    };

    JSONLookup() = default;
    JSONLookup(const JSONLookup& /*other*/) noexcept {}
    JSONLookup& operator=(const JSONLookup& /*other*/) noexcept { return *this; }
    ~JSONLookup() = default;

    [[nodiscard]] Found last() const noexcept {
        const std::uint64_t both = last_.load(std::memory_order_relaxed);
        return {static_cast<std::uint32_t>(both >> 32U), static_cast<std::uint32_t>(both)};
    }
    void remember(Found found) noexcept {
        last_.store(std::uint64_t{found.dictionary} << 32U | found.member,
                    std::memory_order_relaxed);
    }

  private:
    std::atomic<std::uint64_t> last_ = 0;
};

/// Equal whatever the order of a dictionary's keys.
[[nodiscard]] bool areEqual(JSONView left, JSONView right);

/// The value as compact JSON text.
[[nodiscard]] std::string jsonText(JSONView value);

/// A parsed or built JSON value: its nodes, and the characters of its texts.
class JSONDocument {
  public:
    using Kind = JSONNode::Kind;

    std::vector<JSONNode> nodes;
    std::shared_ptr<const std::string> source;  ///< null if it was built
    std::string store;                          ///< texts that do not stand in the source
    mutable JSONLookup lookup;

    [[nodiscard]] JSONView view(std::uint32_t node) const noexcept {
        return {nodes.data() + node, this};
    }

    [[nodiscard]] std::uint32_t indexOf(const JSONNode* node) const noexcept {
        return static_cast<std::uint32_t>(node - nodes.data());
    }

    void append(Kind kind, std::uint64_t value) { nodes.emplace_back(kind, value); }

    /// @param text  may be one of this document's own
    void appendText(Kind kind, std::string_view text) {
        nodes.emplace_back(kind, JSONNode::textValue(store.size(), text.size()), true);
        store.append(text);
    }

    /// Appends a copy of a value of a document, which may be this one, and everything in it.
    void appendCopy(const JSONDocument& other, std::uint32_t node) {
        const std::uint32_t end = node + other.nodes[node].extent;
        for (std::uint32_t at = node; at < end; ++at) {
            const JSONNode each = other.nodes[at];
            if (each.hasCharacters())
                appendText(each.kind, other.view(at).text());
            else
                nodes.push_back(each);
        }
    }

    /// Appends a member to the dictionary that the document is.
    /// @param appendValue  appends its value; if it throws, the document is as before
    template <class AppendValue>
    void appendMember(std::string_view key, const AppendValue& appendValue) {
        const std::size_t nodesBefore = nodes.size();
        const std::size_t storeBefore = store.size();
        try {
            appendText(Kind::key, key);
            appendValue(*this);
            constexpr std::size_t most = std::numeric_limits<std::uint32_t>::max();
            if (nodes.size() > most || store.size() > most)
                throw std::length_error("a dictionary of more than 4 GiB");
        } catch (...) {
            nodes.erase(nodes.begin() + static_cast<std::ptrdiff_t>(nodesBefore), nodes.end());
            store.resize(storeBefore);
            throw;
        }
        nodes.front().value += 1;
        nodes.front().extent = static_cast<std::uint32_t>(nodes.size());
    }
};

inline std::string_view JSONView::textOf(const JSONNode& of) const noexcept {
    // NOLINTNEXTLINE(clang-analyzer-core.*): without a document there is no member, so no text.
    const std::string& characters = of.inStore ? document->store : *document->source;
    return {characters.data() + (of.value & 0xFFFF'FFFFU), of.textLength()};
}

}  // namespace HalvardSling::internal
