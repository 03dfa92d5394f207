#include <algorithm>

#include <HalvardSling/http/Headers.hpp>
#include <internal/ASCII.hpp>

namespace HalvardSling {

bool Headers::isValidName(std::string_view name) noexcept {
    const auto isTokenCharacter = [](char c) {
        return KestrinInternal::isLetter(c) || KestrinInternal::isDigit(c) ||
               std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
    };
    return !name.empty() && std::ranges::all_of(name, isTokenCharacter);
}

bool Headers::isValidValue(std::string_view value) noexcept {
    return std::ranges::all_of(value, [](char c) { return (c >= 0x20 && c <= 0x7E) || c == '\t'; });
}

bool Headers::sameName(std::string_view left, std::string_view right) noexcept {
    return KestrinInternal::equalsIgnoringCase(left, right);
}

Headers::Headers(std::initializer_list<Field> fields) {
    for (const auto& [name, value] : fields)
        add(name, value);
}

std::optional<std::string_view> Headers::value(std::string_view name) const {
    for (const auto& [each, value] : *this)
        if (sameName(each, name)) return value;
    return std::nullopt;
}

void Headers::reserve(std::size_t fields, std::size_t bytes) {
    ends_.reserve(fields);
    texts_.reserve(bytes);
}

void Headers::add(std::string_view name, std::string_view value) {
    texts_.append(name);
    const std::size_t nameEnd = texts_.size();
    texts_.append(value);
    ends_.push_back({.name = nameEnd, .value = texts_.size()});
}

void Headers::set(std::string_view name, std::string_view value) {
    remove(name);
    add(name, value);
}

void Headers::remove(std::string_view name) {
    if (!this->value(name)) return;
    Headers kept;
    for (const auto& [each, value] : *this)
        if (!sameName(each, name)) kept.add(each, value);
    *this = std::move(kept);
}

}  // namespace HalvardSling
