#include <algorithm>
#include <vector>

#include <internal/PercentEncoding.hpp>
#include <internal/UTF8.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/QueryString.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::string_view sentinelName = sentinel.substr(0, sentinel.find('='));

struct RawParameter {
    std::string_view name;
    std::string_view value;
};

std::string quoted(std::string_view text) {
    return "'" + excerptOf(text) + "'";
}

std::string namesOf(std::span<const Parameter> parameters) {
    std::string names;
    for (const Parameter& each : parameters)
        names += "'" + std::string(each.name) + "', ";
    return names + "and 'v' at the end";
}

RawParameter splitAtEquals(std::string_view piece) {
    const std::size_t equals = std::min(piece.find('='), piece.size());
    return {piece.substr(0, equals), piece.substr(std::min(equals + 1, piece.size()))};
}

std::vector<RawParameter> splitQuery(std::string_view query) {
    std::vector<RawParameter> pieces;
    if (query.empty()) return pieces;
    for (std::size_t start = 0; start <= query.size();) {
        const std::size_t end = std::min(query.find('&', start), query.size());
        pieces.push_back(splitAtEquals(query.substr(start, end - start)));
        start = end + 1;
    }
    return pieces;
}

/// How a query ends that lacks the sentinel. Only of the sentinel itself the value is told: a
/// problem names no identifier that somebody watches or likes.
std::string endOf(std::string_view query) {
    if (query.empty()) return "the query is empty";
    const RawParameter last = splitQuery(query).back();
    if (last.name == sentinelName) return "the query ends with 'v=" + excerptOf(last.value) + "'";
    return "the query ends with the parameter " + quoted(last.name);
}

/// The query without its sentinel.
std::string_view withoutSentinel(std::string_view query) {
    const bool isAlone = query == sentinel;
    const bool isLast =
        query.ends_with(sentinel) && query.substr(0, query.size() - sentinel.size()).ends_with('&');
    if (!isAlone && !isLast) {
        throw Problem(ProblemKind::missingSentinel,
                      endOf(query) +
                          "; expected is 'v=1' at the end. Usually a '#' in an identifier cut the"
                          " URL short, so nothing was done; or the client speaks another protocol"
                          " version");
    }
    return query.substr(0, isAlone ? 0 : query.size() - sentinel.size() - 1);
}

std::string decoded(const RawParameter& parameter) {
    const auto refuse = [&parameter](const std::string& reason) {
        throw Problem(ProblemKind::malformedParameter,
                      "the value of " + quoted(parameter.name) + " " + reason);
    };
    std::string text;
    for (std::size_t index = 0; index < parameter.value.size(); ++index) {
        if (parameter.value[index] != '%') {
            text.push_back(parameter.value[index]);
            continue;
        }
        const auto byte = KestrinInternal::percentEscapedByte(parameter.value.substr(index));
        if (!byte) refuse("has a '%' without two hexadecimal digits; write a percent sign %25");
        text.push_back(
            *byte);  // NOLINT(bugprone-unchecked-optional-access): refuse does not return
        index += KestrinInternal::percentEscapeSize - 1;
    }
    if (text.size() > longestText) {
        refuse("has " + std::to_string(text.size()) + " bytes; " + std::to_string(longestText) +
               " are allowed");
    }
    if (!KestrinInternal::isUTF8(text)) refuse("is not UTF-8");
    if (text.find('\0') != std::string::npos) refuse("has a zero byte");
    return text;
}

const Parameter& parameterNamed(std::string_view name, std::span<const Parameter> parameters) {
    const auto known = std::ranges::find(parameters, name, &Parameter::name);
    if (known == parameters.end()) {
        throw Problem(ProblemKind::unknownParameter, "the query has the parameter " + quoted(name) +
                                                         "; expected are " + namesOf(parameters));
    }
    return *known;
}

}  // namespace

QueryValues parsedQuery(std::string_view query, std::span<const Parameter> parameters) {
    QueryValues values;
    std::vector<std::string_view> seen;
    for (const RawParameter& raw : splitQuery(withoutSentinel(query))) {
        const Parameter& parameter = parameterNamed(raw.name, parameters);
        if (std::ranges::find(seen, raw.name) != seen.end()) {
            throw Problem(ProblemKind::repeatedParameter,
                          "the query has the parameter " + quoted(raw.name) + " more than once");
        }
        seen.push_back(raw.name);
        values[parameter.role] = decoded(raw);
    }
    for (const Parameter& each : parameters) {
        if (std::ranges::find(seen, each.name) == seen.end()) {
            throw Problem(ProblemKind::missingParameter, "the query lacks the parameter " +
                                                             quoted(each.name) + "; expected are " +
                                                             namesOf(parameters));
        }
    }
    return values;
}

std::optional<std::string> valueIn(std::string_view query, std::string_view name) {
    for (const RawParameter& raw : splitQuery(query)) {
        if (raw.name != name) continue;
        try {
            return decoded(raw);
        } catch (const Problem&) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

}  // namespace KestrinProfileServer
