#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/json/basic_parser_impl.hpp>

#include <HalvardSling/json/internal/JSONNumber.hpp>
#include <HalvardSling/json/internal/JSONParser.hpp>

namespace HalvardSling::internal {

namespace {

using Kind = JSONNode::Kind;

/// A hash of keys that share one only by chance: a polynomial at a point that nobody outside knows,
/// modulo the prime 2^31 - 1.
class KeyHash {
  public:
    KeyHash() {
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        const auto here = std::bit_cast<std::uintptr_t>(this);
        // Multiplying mixes every bit into the upper ones.
        const std::uint64_t mixed =
            (static_cast<std::uint64_t>(now) ^ here << 20U) * 0x9E37'79B9'7F4A'7C15U;
        point_ = (mixed >> 33U) % (prime - 512) + 256;
    }

    [[nodiscard]] std::uint32_t operator()(std::string_view key) const noexcept {
        std::uint64_t hash = 0;
        for (const char each : key)
            hash = (hash * point_ + static_cast<unsigned char>(each) + 1) % prime;
        return static_cast<std::uint32_t>(hash);
    }

  private:
    static constexpr std::uint64_t prime = 0x7FFF'FFFF;

    std::uint64_t point_;
};

/// At most how many values and keys a text holds: all but the first follow one of these.
std::size_t mostNodes(std::string_view text) {
    const auto follows = [](char c) { return c == ',' || c == ':' || c == '[' || c == '{'; };
    return 1 + static_cast<std::size_t>(std::ranges::count_if(text, follows));
}

/// What Boost.JSON's parser calls for each event: it fills a document.
class ParseHandler {
  public:
    // The names that the parser asks for and calls.
    // NOLINTBEGIN(readability-identifier-naming)
    static constexpr std::size_t max_object_size = std::numeric_limits<std::uint32_t>::max();
    static constexpr std::size_t max_array_size = max_object_size;
    static constexpr std::size_t max_key_size = max_object_size;
    static constexpr std::size_t max_string_size = max_object_size;
    // NOLINTEND(readability-identifier-naming)

    using Error = boost::system::error_code;
    using View = boost::json::string_view;

    /// @param text    what is parsed
    /// @param memory  how much may be made of it, see `JSONLimits::maxMemory`
    ParseHandler(JSONDocument& document, std::string_view text, std::size_t memory)
        : document_(&document), source_(text), memory_(memory) {
        // A typical list has a value or key every 11 bytes.
        nodes_.reserve(std::min(source_.size() / 11 + 8, memory / sizeof(JSONNode)));
    }

    /// Whether no more is made of the text than may be, once it was parsed.
    [[nodiscard]] bool isInLimit() const {
        return isInLimit_ && nodes_.capacity() * sizeof(JSONNode) + spent_ <= memory_;
    }

    // NOLINTBEGIN(readability-identifier-naming)
    bool on_document_begin(Error&) { return true; }
    bool on_document_end(Error&) {
        // Of a few long texts.
        if (nodes_.size() < nodes_.capacity() / 3) nodes_.shrink_to_fit();
        return true;
    }
    bool on_object_begin(Error& error) {
        spent_ += recordSize;
        return begin(Kind::dictionary, error);
    }
    bool on_object_end(std::size_t members, Error& error) {
        const std::size_t dictionary = open_;
        end(members);
        if (!fits(0)) return refuse(error);
        return !mayRepeatKeys(&nodes_[dictionary]) || !repeatsKeys(dictionary) ||
               removeRepeatedMembers(dictionary) || refuse(error);
    }
    bool on_array_begin(Error& error) { return begin(Kind::array, error); }
    bool on_array_end(std::size_t items, Error&) { return end(items); }
    bool on_key_part(View piece, std::size_t, Error&) { return part(piece); }
    bool on_key(View piece, std::size_t, Error& error) { return whole(Kind::key, piece, error); }
    bool on_string_part(View piece, std::size_t, Error&) { return part(piece); }
    bool on_string(View piece, std::size_t size, Error& error) {
        spent_ += textSize + size;
        return whole(Kind::text, piece, error);
    }
    bool on_number_part(View, Error&) { return true; }
    bool on_int64(std::int64_t value, View, Error& error) {
        return add(Kind::integer, std::bit_cast<std::uint64_t>(value), error);
    }
    // Of every other number the characters are kept: so it is written as it was read, and it may be
    // larger than any number of the machine.
    bool on_uint64(std::uint64_t, View all, Error& error) {
        return whole(Kind::number, all, error);
    }
    bool on_double(double, View all, Error& error) { return whole(Kind::number, all, error); }
    bool on_bool(bool value, Error& error) { return add(Kind::boolean, value ? 1 : 0, error); }
    bool on_null(Error& error) { return add(Kind::null, 0, error); }
    bool on_comment_part(View, Error&) { return true; }
    bool on_comment(View, Error&) { return true; }
    // NOLINTEND(readability-identifier-naming)

    /// The nodes, once the whole text was parsed.
    [[nodiscard]] std::vector<JSONNode> takeNodes() { return std::move(nodes_); }

  private:
    // What is made of a text, see `JSONLimits::maxMemory`.
    static constexpr std::size_t recordSize = 176;
    static constexpr std::size_t textSize = 24;

    /// Whether so much more may be made of the text.
    [[nodiscard]] bool fits(std::size_t more) const {
        return nodes_.size() * sizeof(JSONNode) + spent_ + more <= memory_;
    }

    bool refuse(Error& error) {
        isInLimit_ = false;
        error = boost::json::error::array_too_large;
        return false;
    }

    /// Makes room for all nodes that may follow, so that it is done once: meanwhile the nodes take
    /// their former room, too.
    [[gnu::noinline]] bool grow(Error& error) {
        const std::size_t former = nodes_.size() * sizeof(JSONNode);
        if (!fits(former + sizeof(JSONNode))) return refuse(error);
        nodes_.reserve(
            std::min(mostNodes(source_), (memory_ - spent_ - former) / sizeof(JSONNode)));
        return true;
    }

    // Inlining this and `whole` saves decoding a twentieth of its instructions.
    [[gnu::always_inline]] bool add(Kind kind, std::uint64_t value, Error& error,
                                    bool inStore = false) {
        if (nodes_.size() == nodes_.capacity() && !grow(error)) return false;
        nodes_.push_back(JSONNode(kind, value, inStore));
        return true;
    }

    // Texts without an escape are given in one piece that stands in the source; of any other some
    // pieces stand elsewhere, so they are gathered in the document's store.
    bool part(View piece) {
        std::string& store = document_->store;
        if (store.empty()) store.reserve(source_.size());
        if (!inParts_) partsAt_ = store.size();
        inParts_ = true;
        store.append(piece.data(), piece.size());
        spent_ += piece.size();
        return true;
    }

    [[gnu::always_inline]] bool whole(Kind kind, View piece, Error& error) {
        // Of a pointer into anything else the difference is larger than the text.
        const auto offset = std::bit_cast<std::uintptr_t>(piece.data()) -
                            std::bit_cast<std::uintptr_t>(source_.data());
        if (!inParts_ && offset < source_.size())
            return add(kind, JSONNode::textValue(offset, piece.size()), error);
        return gathered(kind, piece, error);
    }

    [[gnu::noinline]] bool gathered(Kind kind, View piece, Error& error) {
        part(piece);
        inParts_ = false;
        return add(kind, JSONNode::textValue(partsAt_, document_->store.size() - partsAt_), error,
                   true);
    }

    bool begin(Kind kind, Error& error) {
        // Until it ends, a container holds the place of the one around it.
        return add(kind, std::exchange(open_, nodes_.size()), error);
    }

    bool end(std::size_t items) {
        JSONNode& node = nodes_[open_];
        node.extent = static_cast<std::uint32_t>(nodes_.size() - open_);
        open_ = static_cast<std::size_t>(std::exchange(node.value, items));
        return true;
    }

    /// False only if no key is repeated: if their lengths differ, as in every record of the
    /// service.
    static bool mayRepeatKeys(const JSONNode* dictionary) {
        std::uint64_t lengths = 0;
        const JSONNode* const end = dictionary + dictionary->extent;
        for (const JSONNode* key = dictionary + 1; key < end; key = key[1].next()) {
            const std::uint64_t length = std::uint64_t{1} << key->textLength() % 64U;
            if ((lengths & length) != 0) return true;
            lengths |= length;
        }
        return false;
    }

    static constexpr std::size_t fewMembers = 32;

    /// The same, exactly for a dictionary of few members: each is compared with the others.
    [[gnu::noinline]] [[nodiscard]] bool repeatsKeys(std::size_t dictionary) const {
        const JSONView all = view(dictionary);
        if (all.count() > fewMembers) return true;
        JSONView key = all.first();
        for (std::size_t i = 0; i < all.count(); ++i, key = key.next().next())
            if (all.find(key.text()) != key.next().node) return true;
        return false;
    }

    /// A member whose key another one before it has.
    struct Repeated {
        std::uint32_t member;  ///< from the dictionary
        bool isFirst;          ///< the first after the one that counts
    };

    /// What finding them needs.
    struct Search {
        std::vector<std::uint64_t> hashes;  ///< a key's in the upper half, its place in the lower
        std::vector<Repeated> counting;     ///< the members that count, of those with one hash
        std::vector<Repeated> repeated;
        std::vector<JSONNode> repeatedKeys;

        static constexpr std::size_t sizePerMember =
            sizeof(std::uint64_t) + sizeof(Repeated) + sizeof(JSONNode) / 2;
    };

    /// Of members with one key the first counts. Removes the others from the dictionary that was
    /// parsed last, and puts their keys behind its members.
    /// @return false if that is too much
    [[gnu::noinline]] [[nodiscard]] bool removeRepeatedMembers(std::size_t dictionary) {
        const auto members = static_cast<std::size_t>(nodes_[dictionary].value);
        if (!fits(members * Search::sizePerMember)) return false;
        findRepeated(view(dictionary));
        const bool isDone = search_.repeated.empty() || removeRepeated(dictionary);
        if (members > fewMembers) search_ = Search();
        return isDone;
    }

    /// Fills `search_.repeated`, in the order of the text.
    void findRepeated(JSONView dictionary) {
        if (!hash_) hash_.emplace();
        auto& hashes = search_.hashes;
        hashes.clear();
        hashes.reserve(dictionary.count());
        JSONView key = dictionary.first();
        for (std::size_t i = 0; i < dictionary.count(); ++i, key = key.next().next())
            hashes.push_back(std::uint64_t{(*hash_)(key.text())} << 32U |
                             static_cast<std::uint32_t>(key.node - dictionary.node));
        // The members with one key stand together then, the one that counts first.
        std::ranges::sort(hashes);

        search_.repeated.clear();
        search_.repeated.reserve(dictionary.count());
        const auto hashOf = [](std::uint64_t entry) { return entry >> 32U; };
        for (auto run = hashes.begin(); run != hashes.end();) {
            const auto end = std::ranges::find_if_not(
                run, hashes.end(), [&](auto each) { return hashOf(each) == hashOf(*run); });
            if (end - run > 1) findRepeatedIn({run, end}, dictionary);
            run = end;
        }
        std::ranges::sort(search_.repeated, {}, &Repeated::member);
    }

    /// Of members whose keys have one hash, nearly always one key.
    void findRepeatedIn(std::span<const std::uint64_t> run, JSONView dictionary) {
        const auto keyAt = [&](std::uint32_t member) {
            return dictionary.at(dictionary.node + member).text();
        };
        auto& counting = search_.counting;
        counting.clear();
        for (const std::uint64_t each : run) {
            const auto member = static_cast<std::uint32_t>(each);
            const auto same = std::ranges::find_if(counting, [&](const Repeated& other) {
                return keyAt(other.member) == keyAt(member);
            });
            if (same == counting.end())
                counting.push_back({.member = member, .isFirst = true});
            else
                search_.repeated.push_back(
                    {.member = member, .isFirst = std::exchange(same->isFirst, false)});
        }
    }

    /// @return false if that is too much
    [[nodiscard]] bool removeRepeated(std::size_t dictionary) {
        const auto& repeated = search_.repeated;
        // What stands deep in others may be moved once for each of them.
        moved_ += nodes_.size() - dictionary - repeated.front().member;
        if (moved_ > (std::size_t{1} << 20U) + 8 * nodes_.size()) return false;

        auto& keys = search_.repeatedKeys;
        keys.clear();
        keys.reserve(
            static_cast<std::size_t>(std::ranges::count(repeated, true, &Repeated::isFirst)));
        const auto at = [&](std::size_t place) {
            return nodes_.begin() + static_cast<std::ptrdiff_t>(dictionary + place);
        };
        auto kept = at(repeated.front().member);
        for (auto each = repeated.begin(); each != repeated.end();) {
            const auto key = at(each->member);
            if (each->isFirst) keys.push_back(*key);
            const auto begin = key + 1 + static_cast<std::ptrdiff_t>(key[1].extent);
            kept =
                std::copy(begin, ++each == repeated.end() ? nodes_.end() : at(each->member), kept);
        }
        nodes_.erase(std::ranges::copy(keys, kept).out, nodes_.end());
        nodes_[dictionary].extent = static_cast<std::uint32_t>(nodes_.size() - dictionary);
        nodes_[dictionary].value -= repeated.size();
        return true;
    }

    [[nodiscard]] JSONView view(std::size_t node) const {
        return {nodes_.data() + node, document_};
    }

    JSONDocument* document_;
    std::string_view source_;
    std::size_t memory_;
    std::size_t spent_ = 0;  // of the memory, by all but the nodes
    bool isInLimit_ = true;
    std::vector<JSONNode> nodes_;
    std::size_t open_ = 0;  // the innermost container that has not ended
    std::size_t partsAt_ = 0;
    bool inParts_ = false;

    std::optional<KeyHash> hash_;
    Search search_;
    std::size_t moved_ = 0;  // how many nodes were, in all
};

JSONFailure failureAt(std::string_view text, std::size_t offset, std::string reason) {
    const std::string_view before = text.substr(0, offset);
    const auto lastBreak = before.rfind('\n');
    return {.reason = std::move(reason),
            .offset = offset,
            .line = 1 + static_cast<std::size_t>(std::ranges::count(before, '\n')),
            .column = lastBreak == std::string_view::npos ? offset + 1 : offset - lastBreak};
}

JSONFailure tooLargeAt(std::string_view text, std::size_t offset) {
    JSONFailure failure =
        failureAt(text, offset, "too many values for the memory that they may take");
    failure.kind = JSONFailure::Kind::tooLarge;
    return failure;
}

/// How parsing ended.
struct Outcome {
    boost::system::error_code error;
    std::size_t offset = 0;
    bool isInLimit = true;
};

/// Fills a document.
/// @param text    the document's source, or a text that has everything in the same place
/// @param memory  how much may be made of it
Outcome fill(JSONDocument& document, std::string_view text, std::size_t maxDepth,
             std::size_t memory) {
    document.nodes = std::vector<JSONNode>();
    document.store = std::string();
    boost::json::parse_options options;
    options.max_depth = maxDepth;
    boost::json::basic_parser<ParseHandler> parser(options, document, text, memory);
    Outcome outcome;
    outcome.offset = parser.write_some(false, text.data(), text.size(), outcome.error);
    if (!outcome.error && outcome.offset < text.size())
        outcome.error = boost::json::error::extra_data;
    outcome.isInLimit = parser.handler().isInLimit();
    document.nodes = parser.handler().takeNodes();
    return outcome;
}

}  // namespace

std::variant<std::shared_ptr<const JSONDocument>, JSONFailure> parseJSON(
    std::shared_ptr<const std::string> text, const JSONLimits& limits) {
    if (text->size() >
        std::min<std::size_t>(limits.maxMemory, std::numeric_limits<std::uint32_t>::max()))
        return tooLargeAt({}, 0);

    auto document = std::make_shared<JSONDocument>();
    document->source = std::move(text);
    const std::string& source = *document->source;
    const std::size_t memory = limits.maxMemory - source.size();
    Outcome outcome = fill(*document, source, limits.maxDepth, memory);
    // The parser reads no exponent that is larger than an int.
    if (outcome.error == boost::json::error::exponent_overflow) {
        if (memory < source.size()) return tooLargeAt(source, outcome.offset);
        outcome =
            fill(*document, withShortExponents(source), limits.maxDepth, memory - source.size());
    }
    if (!outcome.isInLimit) return tooLargeAt(source, outcome.offset);
    if (outcome.error) return failureAt(source, outcome.offset, outcome.error.message());
    const JSONKind top = document->view(0).jsonKind();
    if (top != JSONKind::dictionary)
        return failureAt(source, 0,
                         "the top is " + std::string(name(top)) + ", expected a dictionary,");
    return document;
}

}  // namespace HalvardSling::internal
