#include "NamedValues.hpp"

#include <algorithm>

#include <fmt/format.h>

#include <internal/Quoting.hpp>

#include "ExitCode.hpp"

namespace KestrinProfileCLI {

using KestrinInternal::inQuotes;

NamedValues namedValuesOf(const std::vector<std::string>& words, std::string_view taker,
                          std::span<const std::string_view> known, const std::string& advice) {
    const auto fail = [&](const std::string& message) {
        throw CommandError({ExitCode::usage, message, advice});
    };
    NamedValues values;
    for (const auto& word : words) {
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        if (equals == std::string::npos)
            fail(fmt::format("{} is no field: give NAME=VALUE", inQuotes(word)));
        if (known.empty()) fail(fmt::format("{} takes no field", taker));
        if (std::ranges::find(known, name) == known.end())
            fail(fmt::format("unknown field {}{}", inQuotes(name),
                             KestrinInternal::suggestion(name, known)));
        if (!values.emplace(name, word.substr(equals + 1)).second)
            fail(fmt::format("the field {} is given twice", inQuotes(name)));
    }
    return values;
}

}  // namespace KestrinProfileCLI
