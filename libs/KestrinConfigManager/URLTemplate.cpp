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
    std::string result;
    std::size_t end = 0;  // of what was taken from the template
    for (const Slot& slot : slots_) {
        const auto value = values.find(token(slot));
        result.append(text_, end, slot.begin - end)
            .append(value != values.end() ? std::string_view(value->second) : token(slot));
        end = slot.begin + slot.length;
    }
    return result.append(text_, end);
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
