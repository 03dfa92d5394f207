#include "Fields.hpp"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include <internal/ASCII.hpp>
#include <internal/Quoting.hpp>

#include "ExitCode.hpp"

namespace KestrinProfileCLI {

using HalvardSling::JSONDictionary;

void addFields(CLI::App& command, std::string& text, std::span<const std::string_view> known) {
    command
        .add_option("--fields", text,
                    fmt::format("Show these fields alone, separated by commas, also in JSON: {}",
                                fmt::join(known, ", ")))
        ->type_name("FIELDS");
}

Fields fieldsOf(const std::string& text, std::span<const std::string_view> known) {
    Fields fields;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t comma = std::min(rest.find(','), rest.size());
        const std::string_view field = KestrinInternal::trimmed(rest.substr(0, comma), " ");
        if (std::ranges::find(known, field) == known.end())
            throw CommandError({ExitCode::usage,
                                fmt::format("unknown field {}{}", KestrinInternal::inQuotes(field),
                                            KestrinInternal::suggestion(field, known)),
                                "give --fields some of these, separated by commas"});
        fields.emplace_back(field);
        rest.remove_prefix(std::min(rest.size(), comma + 1));
    }
    return fields;
}

std::vector<std::string> chosenCells(std::vector<std::string> row,
                                     std::span<const std::string_view> keys, const Fields& fields) {
    if (fields.empty()) return row;
    std::vector<std::string> chosen;
    for (const auto& field : fields) {
        const auto at = std::ranges::find(keys, field) - keys.begin();
        chosen.push_back(row.at(static_cast<std::size_t>(at)));
    }
    return chosen;
}

JSONDictionary chosenKeys(const JSONDictionary& record, const Fields& fields) {
    if (fields.empty()) return record;
    JSONDictionary chosen = record;
    for (const auto key : record.keys())
        if (std::ranges::find(fields, key) == fields.end()) chosen.remove(key);
    return chosen;
}

}  // namespace KestrinProfileCLI
