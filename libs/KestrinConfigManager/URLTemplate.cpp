#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include <boost/container/small_vector.hpp>

#include <KestrinConfigManager/URLTemplate.hpp>

namespace KestrinConfigManager {

namespace {

constexpr std::size_t fewestLetters = 3;
constexpr std::size_t usualSlots = 8;

constexpr bool isUpper(char c) noexcept {
    return c >= 'A' && c <= 'Z';
}

/// The length of the placeholder that begins with the text, or 0 where none does.
std::size_t placeholderLength(std::string_view text) noexcept {
    if (!text.starts_with('%')) return 0;
    const auto end = std::ranges::find_if_not(text.begin() + 1, text.end(), isUpper);
    const auto letters = static_cast<std::size_t>(end - text.begin()) - 1;
    return letters >= fewestLetters && end != text.end() && *end == '%' ? letters + 2 : 0;
}

// The pieces of a URL are short: for most of them a call of memcmp or memcpy would cost more than
// all the rest. A piece of one to two words' length is its first and its last word, which overlap.

template <class Word>
Word wordAt(const char* text) noexcept {
    Word word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

template <class Word>
bool sameEnds(std::string_view left, std::string_view right) noexcept {
    const std::size_t last = left.size() - sizeof(Word);
    return wordAt<Word>(left.data()) == wordAt<Word>(right.data()) &&
           wordAt<Word>(left.data() + last) == wordAt<Word>(right.data() + last);
}

template <class Word>
void copyEnds(const char* from, char* to, std::size_t size) noexcept {
    const std::size_t last = size - sizeof(Word);
    const Word end = wordAt<Word>(from + last);
    const Word begin = wordAt<Word>(from);
    std::memcpy(to, &begin, sizeof begin);
    std::memcpy(to + last, &end, sizeof end);
}

template <class Word>
bool hasLengthOf(std::size_t size) noexcept {
    return size >= sizeof(Word) && size <= 2 * sizeof(Word);
}

using Short = std::uint32_t;
using Long = std::uint64_t;

bool same(std::string_view left, std::string_view right) noexcept {
    if (left.size() != right.size()) return false;
    if (hasLengthOf<Short>(left.size())) return sameEnds<Short>(left, right);
    if (hasLengthOf<Long>(left.size())) return sameEnds<Long>(left, right);
    return left == right;
}

/// @return where the copy ends
char* copied(std::string_view text, char* out) noexcept {
    if (hasLengthOf<Short>(text.size()))
        copyEnds<Short>(text.data(), out, text.size());
    else if (hasLengthOf<Long>(text.size()))
        copyEnds<Long>(text.data(), out, text.size());
    else
        text.copy(out, text.size());
    return out + text.size();
}

/// A text that is put in; nothing is set before it is known.
struct Part {
    const char* data;
    std::size_t size;
};

/// The value of a token, or the token itself where there is none.
/// @param value  where to look from; moved on to where the next token may be
std::string_view valueOf(std::string_view token, TextMap::const_iterator& value,
                         const TextMap::const_iterator& end) noexcept {
    for (; value != end; ++value) {
        if (same(value->first, token)) return (value++)->second;
        if (value->first > token) break;
    }
    return token;
}

}  // namespace

URLTemplate::URLTemplate(std::string text) : text_(std::move(text)), path_(pathInText()) {
    const std::string_view all = text_;
    for (std::size_t at = all.find('%'); at != std::string_view::npos; at = all.find('%', at)) {
        const std::size_t length = placeholderLength(all.substr(at));
        if (length > 0) slots_.push_back({at, length});
        at += std::max<std::size_t>(length, 1);
    }
    for (std::size_t slot = 0; slot < slots_.size(); ++slot)
        tokens_.push_back({slot, false});
    const auto tokenOf = [this](const Token& each) { return token(slots_[each.slot]); };
    std::ranges::sort(tokens_, {}, tokenOf);
    for (std::size_t i = 1; i < tokens_.size(); ++i)
        tokens_[i].again = tokenOf(tokens_[i]) == tokenOf(tokens_[i - 1]);
}

std::vector<std::string_view> URLTemplate::placeholders() const {
    std::vector<std::string_view> tokens;
    tokens.reserve(slots_.size());
    for (const Slot& slot : slots_)
        tokens.push_back(token(slot));
    return tokens;
}

std::optional<std::string_view> URLTemplate::unfilled(const TextMap& values) const {
    for (const Slot& slot : slots_)
        if (!values.contains(token(slot))) return token(slot);
    return std::nullopt;
}

std::string URLTemplate::filled(const TextMap& values) const {
    // Both are sorted by token, so one walk over them finds every value.
    boost::container::small_vector<Part, usualSlots> parts(slots_.size(),
                                                           boost::container::default_init);
    std::size_t size = text_.size();
    auto value = values.begin();
    std::string_view part;
    for (const auto& [slot, again] : tokens_) {
        const std::string_view wanted = token(slots_[slot]);
        if (!again) part = valueOf(wanted, value, values.end());
        parts[slot] = {part.data(), part.size()};
        size += part.size() - wanted.size();
    }

    std::string result(size, '\0');
    char* out = result.data();
    const char* rest = text_.data();
    for (std::size_t slot = 0; slot < parts.size(); ++slot) {
        const std::string_view placeholder = token(slots_[slot]);
        out = copied({rest, placeholder.data()}, out);
        out = copied({parts[slot].data, parts[slot].size}, out);
        rest = placeholder.data() + placeholder.size();
    }
    copied({rest, text_.data() + text_.size()}, out);
    return result;
}

std::size_t URLTemplate::pathBegin() const noexcept {
    const std::string_view all = text_;
    const std::size_t separator = all.find("://");
    if (separator == std::string_view::npos || separator > all.find_first_of("/?#")) return 0;
    return std::min(all.find_first_of("/?#", separator + 3), all.size());
}

std::string URLTemplate::pathInText() const {
    const std::string_view rest = std::string_view(text_).substr(pathBegin());
    const std::string_view path = rest.substr(0, rest.find_first_of("?#"));
    return path.empty() ? "/" : std::string(path);
}

}  // namespace KestrinConfigManager
