#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <HalvardSling/http/Response.hpp>
#include <KestrinProfile/model/User.hpp>
#include <KestrinProfile/model/UserProfile.hpp>

#include "Fields.hpp"
#include "Session.hpp"

namespace KestrinProfileCLI {

/// How a list is shown to people.
struct ListFormat {
    std::string item;          ///< the heading of the identifiers, e.g. "VIDEO"
    bool hasProgress = false;  ///< whether its entries say how far they were watched
    bool utc = false;          ///< whether dates are in UTC
    Fields fields{};           ///< which fields of the entries
};

/// The keys of a list's entries, and of profiles, that `Fields` may hold.
[[nodiscard]] std::span<const std::string_view> keysOfEntries(bool hasProgress);
[[nodiscard]] std::span<const std::string_view> keysOfProfiles();

/// A list as the lines of a table, or as one line of JSON.
[[nodiscard]] std::vector<std::string> linesOf(const Session& session,
                                               const KestrinProfile::UserProfile& list,
                                               const ListFormat& format);

/// Profiles as the lines of a table, or as one line of JSON.
[[nodiscard]] std::vector<std::string> linesOf(const Session& session,
                                               const std::vector<KestrinProfile::User>& users,
                                               const Fields& fields = {});

/// Prints a profile.
void print(const Session& session, const KestrinProfile::User& user);

/// Prints that something was done; in JSON the reply's own document, or its status if it has
/// none.
void printDone(const Session& session, const HalvardSling::Response& reply,
               const std::string& text);

}  // namespace KestrinProfileCLI
