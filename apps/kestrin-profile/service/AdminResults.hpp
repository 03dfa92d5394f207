#pragma once

#include <span>
#include <string>
#include <string_view>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>

#include "../Session.hpp"

namespace KestrinProfileCLI {

// What the admin interface of a development service answers, as it is shown.

/// A column of a table.
struct AdminColumn {
    std::string_view heading;
    std::string_view key;  ///< of the records; "action.kind" is a key in a dictionary
};

/// The document of a reply.
/// @throws CommandError if it has none
[[nodiscard]] HalvardSling::JSONDictionary adminDocumentOf(const HalvardSling::Response& reply);

/// Prints the records under a key as a table, and how many there are.
void printRecords(const Session& session, const HalvardSling::JSONDictionary& document,
                  std::string_view key, std::span<const AdminColumn> columns);

/// Prints each value of a record on a line.
void printRecord(const Session& session, const HalvardSling::JSONDictionary& record);

/// Prints the profiles of all households, and how long their lists are.
void printHouseholds(const Session& session, const HalvardSling::JSONDictionary& document);

/// Prints a profile with its four lists.
void printProfileLists(const Session& session, const HalvardSling::JSONDictionary& profile);

/// Prints a request of the journal beside its reply.
void printJournalEntry(const Session& session, const HalvardSling::JSONDictionary& entry);

/// Prints which requests nearly were what was looked for, and what is different.
void printNearMisses(const Session& session, const HalvardSling::JSONDictionary& verified);

}  // namespace KestrinProfileCLI
