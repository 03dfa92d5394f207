#include <algorithm>

#include <HalvardSling/Headers.hpp>

namespace HalvardSling {

namespace {

constexpr char lowered(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool Headers::sameName(std::string_view left, std::string_view right) noexcept {
    return std::ranges::equal(left, right, {}, lowered, lowered);
}

std::optional<std::string_view> Headers::value(std::string_view name) const {
    const auto found = std::ranges::find_if(
        fields_, [&](const Field& field) { return sameName(field.first, name); });
    if (found == fields_.end()) return std::nullopt;
    return found->second;
}

void Headers::add(std::string name, std::string value) {
    fields_.emplace_back(std::move(name), std::move(value));
}

void Headers::set(std::string name, std::string value) {
    remove(name);
    add(std::move(name), std::move(value));
}

void Headers::remove(std::string_view name) {
    std::erase_if(fields_, [&](const Field& field) { return sameName(field.first, name); });
}

}  // namespace HalvardSling
