#include <algorithm>
#include <utility>

#include <KestrinConfigManager/URLTemplate.hpp>

namespace KestrinConfigManager {

namespace {

constexpr std::size_t fewestLetters = 3;

constexpr bool isUpper(char c) noexcept {
    return c >= 'A' && c <= 'Z';
}

/// The length of the placeholder that begins with the text, or 0 if none does.
std::size_t placeholderLength(std::string_view text) noexcept {
    if (!text.starts_with('%')) return 0;
    const auto end = std::ranges::find_if_not(text.begin() + 1, text.end(), isUpper);
    const auto letters = static_cast<std::size_t>(end - text.begin()) - 1;
    return letters >= fewestLetters && end != text.end() && *end == '%' ? letters + 2 : 0;
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
        slotsByToken_.push_back(slot);
    std::ranges::sort(slotsByToken_, {}, [this](std::size_t slot) { return token(slots_[slot]); });
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
    // Both are sorted by placeholder, so one walk over them finds every value.
    std::vector<std::string_view> parts(slots_.size());
    std::size_t size = text_.size();
    std::string_view former;
    std::string_view part;
    auto value = values.begin();
    for (const std::size_t slot : slotsByToken_) {
        const std::string_view placeholder = token(slots_[slot]);
        int order = 1;
        while (value != values.end() && (order = value->first.compare(placeholder)) < 0)
            ++value;
        if (order == 0)
            part = (value++)->second;
        else if (placeholder != former)  // one that stands there twice has the same part again
            part = placeholder;
        former = placeholder;
        parts[slot] = part;
        size += part.size() - placeholder.size();
    }

    std::string result;
    result.reserve(size);
    std::size_t end = 0;  // of what was taken from the template
    for (std::size_t slot = 0; slot < slots_.size(); ++slot) {
        const auto& [begin, length] = slots_[slot];
        result.append(text_.data() + end, begin - end).append(parts[slot]);
        end = begin + length;
    }
    result.append(text_, end);
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
