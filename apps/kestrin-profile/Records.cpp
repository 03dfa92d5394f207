#include "Records.hpp"

#include <cstddef>
#include <vector>

#include <fmt/format.h>

#include "Text.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;
using HalvardSling::JSONKind;

namespace {

constexpr const char* noValue = "-";

/// A value as JSON has it.
std::string jsonOf(const JSONDictionary& record, std::string_view key) {
    JSONDictionary alone = record;
    for (const auto other : record.keys())
        if (other != key) alone.remove(other);
    const std::string text = alone.toJSON();
    const std::size_t colon = text.find(':');
    return colon == std::string::npos ? noValue : text.substr(colon + 1, text.size() - colon - 2);
}

/// The values of a dictionary with their names, e.g. "method=PUT profile=kid".
std::string valuesOf(const JSONDictionary& record) {
    std::vector<std::string> all;
    for (const auto key : record.keys())
        all.push_back(fmt::format("{}={}", key, cellOf(record, key)));
    return all.empty() ? noValue : joined(all, " ");
}

}  // namespace

std::string cellOf(const JSONDictionary& record, std::string_view key) {
    const std::size_t point = key.find('.');
    if (point != std::string_view::npos) {
        const auto inner = record.dictionary(key.substr(0, point));
        return inner ? cellOf(*inner, key.substr(point + 1)) : noValue;
    }
    switch (record.kind(key).value_or(JSONKind::null)) {
        case JSONKind::null:
            return noValue;
        case JSONKind::boolean:
            return record.boolean(key) == true ? "yes" : "no";
        case JSONKind::text:
            return printable(*record.text(key));
        case JSONKind::dictionary:
            return valuesOf(*record.dictionary(key));
        case JSONKind::integer:
        case JSONKind::number:
        case JSONKind::array:
            break;
    }
    return printableJSON(jsonOf(record, key));
}

}  // namespace KestrinProfileCLI
