#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/json/basic_parser_impl.hpp>

#include <HalvardSling/json/internal/JSONParser.hpp>

namespace HalvardSling::internal {

namespace {

using Kind = JSONNode::Kind;

/// What Boost.JSON's parser calls for each event: it fills a document.
class ParseHandler {
  public:
    static constexpr std::size_t max_object_size = std::numeric_limits<std::uint32_t>::max();
    static constexpr std::size_t max_array_size = max_object_size;
    static constexpr std::size_t max_key_size = max_object_size;
    static constexpr std::size_t max_string_size = max_object_size;

    using Error = boost::system::error_code;
    using View = boost::json::string_view;

    ParseHandler(JSONDocument& document, std::string_view text)
        : document_(&document), source_(text) {
        // A typical list has a value or key every 11 bytes.
        nodes_.reserve(source_.size() / 11 + 8);
    }

    // The names that the parser calls.
    bool on_document_begin(Error&) { return true; }
    bool on_document_end(Error&) {
        document_->nodes = std::move(nodes_);
        return true;
    }
    bool on_object_begin(Error&) { return begin(Kind::dictionary); }
    bool on_object_end(std::size_t members, Error&) {
        const std::size_t dictionary = open_;
        end(members);
        if (mayRepeatKeys(&nodes_[dictionary])) removeRepeatedMembers(dictionary);
        return true;
    }
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

  private:
    // Inlining this and `whole` saves decoding a twentieth of its instructions.
    [[gnu::always_inline]] bool add(Kind kind, std::uint64_t value, bool inStore = false) {
        nodes_.push_back(JSONNode(kind, value, inStore));
        return true;
    }

    // Texts without an escape are given in one piece that stands in the source; of any other some
    // pieces stand elsewhere, so they are gathered in the document's store.
    bool part(View piece) {
        if (!inParts_) partsAt_ = document_->store.size();
        inParts_ = true;
        document_->store.append(piece.data(), piece.size());
        return true;
    }

    [[gnu::always_inline]] bool whole(Kind kind, View piece) {
        // Of a pointer into anything else the difference is larger than the text.
        const auto offset = std::bit_cast<std::uintptr_t>(piece.data()) -
                            std::bit_cast<std::uintptr_t>(source_.data());
        if (!inParts_ && offset < source_.size())
            return add(kind, JSONNode::textValue(offset, piece.size()));
        return gathered(kind, piece);
    }

    [[gnu::noinline]] bool gathered(Kind kind, View piece) {
        part(piece);
        inParts_ = false;
        return add(kind, JSONNode::textValue(partsAt_, document_->store.size() - partsAt_), true);
    }

    bool begin(Kind kind) {
        // Until it ends, a container holds the place of the one around it.
        return add(kind, std::exchange(open_, nodes_.size()));
    }

    bool end(std::size_t items) {
        JSONNode& node = nodes_[open_];
        node.extent = static_cast<std::uint32_t>(nodes_.size() - open_);
        open_ = std::exchange(node.value, items);
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

    /// Of members with one key the first counts. Removes the others from the dictionary that was
    /// parsed last, and puts their keys behind its members.
    [[gnu::noinline]] void removeRepeatedMembers(std::size_t dictionary) {
        std::set<std::string_view> seen;
        std::set<std::string_view> repeated;
        std::vector<JSONNode> repeatedKeys;
        const auto end = nodes_.end();
        auto kept = nodes_.begin() + static_cast<std::ptrdiff_t>(dictionary) + 1;
        for (auto member = kept; member != end;) {
            const auto next = member + 1 + member[1].extent;
            const std::string_view key = view(member - nodes_.begin()).text();
            if (seen.insert(key).second)
                kept = kept == member ? next : std::copy(member, next, kept);
            else if (repeated.insert(key).second)
                repeatedKeys.push_back(*member);
            member = next;
        }
        nodes_.erase(std::ranges::copy(repeatedKeys, kept).out, end);
        nodes_[dictionary].extent = static_cast<std::uint32_t>(nodes_.size() - dictionary);
        nodes_[dictionary].value = seen.size();
    }

    [[nodiscard]] JSONView view(std::ptrdiff_t node) const {
        return {nodes_.data() + node, document_};
    }

    JSONDocument* document_;
    std::string_view source_;
    std::vector<JSONNode> nodes_;
    std::size_t open_ = 0;  // the innermost container that has not ended
    std::size_t partsAt_ = 0;
    bool inParts_ = false;
};

JSONFailure failureAt(std::string_view text, std::size_t offset, std::string reason) {
    const std::string_view before = text.substr(0, offset);
    const auto lastBreak = before.rfind('\n');
    return {.reason = std::move(reason),
            .offset = offset,
            .line = 1 + static_cast<std::size_t>(std::ranges::count(before, '\n')),
            .column = lastBreak == std::string_view::npos ? offset + 1 : offset - lastBreak};
}

}  // namespace

std::variant<std::shared_ptr<const JSONDocument>, JSONFailure> parseJSON(
    std::shared_ptr<const std::string> text, std::size_t maxDepth) {
    if (text->size() > std::numeric_limits<std::uint32_t>::max())
        return failureAt({}, 0, "a text of more than 4 GiB");

    boost::json::parse_options options;
    options.max_depth = maxDepth;
    auto document = std::make_shared<JSONDocument>();
    document->source = std::move(text);
    const std::string& source = *document->source;
    boost::json::basic_parser<ParseHandler> parser(options, *document, source);

    boost::system::error_code error;
    const std::size_t read = parser.write_some(false, source.data(), source.size(), error);
    if (!error && read < source.size()) error = boost::json::error::extra_data;
    if (error) return failureAt(source, read, error.message());
    const JSONKind top = document->view(0).jsonKind();
    if (top != JSONKind::dictionary)
        return failureAt(source, 0,
                         "the top is " + std::string(name(top)) + ", expected a dictionary,");
    return document;
}

}  // namespace HalvardSling::internal
