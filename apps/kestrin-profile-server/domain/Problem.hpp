#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KestrinProfileServer {

using HeaderLines = std::vector<std::pair<std::string, std::string>>;

/// Everything that can be wrong with a request; status and title are in one table.
enum class ProblemKind {
    malformedRequest,
    missingSentinel,
    unknownParameter,
    repeatedParameter,
    missingParameter,
    malformedParameter,
    repeatedHeader,
    missingHeader,
    unexpectedBody,
    missingBody,
    malformedJSON,
    repeatedKey,
    zeroCharacter,
    secretRequired,
    tokenRequired,
    tokenRefused,
    profileRefused,
    profileBlocked,
    unknownPath,
    unknownProfile,
    methodNotAllowed,
    tooManyProfiles,
    parentProfile,
    bodyTooLarge,
    unsupportedMediaType,
    invalidBody,
    invalidName,
    invalidEntry,
    headersTooLarge,
    internal,
    unavailable,
    busy,
    invalidRequest,
    adminSecretRequired,
    originRefused,
    unknownNamespace,
    unknownItem,
    taken,
    tooManyNamespaces,
    httpsRequired,
};

/// Ends a request with a problem document (RFC 9457). `detail` says what came and what was
/// expected; it never holds a token or a secret.
class Problem : public std::runtime_error {
  public:
    Problem(ProblemKind kind, const std::string& detail, HeaderLines headers = {})
        : std::runtime_error(detail), kind_(kind), headers_(std::move(headers)) {}

    [[nodiscard]] ProblemKind kind() const { return kind_; }
    [[nodiscard]] const HeaderLines& headers() const { return headers_; }

  private:
    ProblemKind kind_;
    HeaderLines headers_;
};

}  // namespace KestrinProfileServer
