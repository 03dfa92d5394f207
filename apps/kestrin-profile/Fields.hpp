#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace KestrinProfileCLI {

/// The fields of records that are shown, by their keys; empty: all.
using Fields = std::vector<std::string>;

/// Adds --fields to a command.
/// @param text   what is typed
/// @param known  the keys that there are
void addFields(CLI::App& command, std::string& text, std::span<const std::string_view> known);

/// The fields that somebody has typed, separated by commas.
/// @param known  the keys that there are
/// @throws CommandError if one is none of them
[[nodiscard]] Fields fieldsOf(const std::string& text, std::span<const std::string_view> known);

/// Of a row, whose cells belong to these keys, the cells of the fields, in the fields' order.
[[nodiscard]] std::vector<std::string> chosenCells(std::vector<std::string> row,
                                                   std::span<const std::string_view> keys,
                                                   const Fields& fields);

/// A record with no other keys than these.
[[nodiscard]] HalvardSling::JSONDictionary chosenKeys(const HalvardSling::JSONDictionary& record,
                                                      const Fields& fields);

}  // namespace KestrinProfileCLI
