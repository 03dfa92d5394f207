#include <array>
#include <cstddef>
#include <string>

#include <KestrinConfigManager/ConfigurationManagerError.hpp>

namespace KestrinConfigManager {

namespace {

using Case = ConfigurationManagerError::Case;

struct Wording {
    std::string_view name;
    std::string_view meaning;
    std::string_view advice;
};

/// In the order of the cases.
constexpr std::array<Wording, 5> wordings{{
    {"invalidParameters", "the request's parameters are incomplete",
     "fill in what the operation needs; if the bind is missing, request one"},
    {"serviceDisabled", "the configuration switches the service off", "do without the operation"},
    {"placeholderUnfilled", "the parameters have no value for a placeholder of the service's URL",
     "use a template whose placeholders the operation fills"},
    {"serviceNotConfigured", "there is no service for the operation",
     "load a configuration that has it"},
    {"identifierRefused", "an identifier holds a character that the strict mode refuses",
     "percent-encode it or use another identifier"},
}};

const Wording& wordingOf(Case value) {
    return wordings.at(static_cast<std::size_t>(value));
}

std::string text(const Wording& wording, std::string_view operation, std::string_view detail) {
    std::string result(wording.name);
    if (!operation.empty()) result.append(" in \"").append(operation).append("\"");
    result.append(": ").append(wording.meaning);
    if (!detail.empty()) result.append(" (").append(detail).append(")");
    return result.append("; ").append(wording.advice);
}

}  // namespace

const ConfigurationManagerError ConfigurationManagerError::invalidParameters(
    Case::invalidParameters);
const ConfigurationManagerError ConfigurationManagerError::serviceDisabled(Case::serviceDisabled);
const ConfigurationManagerError ConfigurationManagerError::placeholderUnfilled(
    Case::placeholderUnfilled);
const ConfigurationManagerError ConfigurationManagerError::serviceNotConfigured(
    Case::serviceNotConfigured);
const ConfigurationManagerError ConfigurationManagerError::identifierRefused(
    Case::identifierRefused);

ConfigurationManagerError::ConfigurationManagerError(Case value, std::string_view operation,
                                                     std::string_view detail)
    : value_(value),
      // NOLINTNEXTLINE(bugprone-throw-keyword-missing): a member, not an error that is forgotten.
      text_(text(wordingOf(value), operation, detail)) {}

// Out of line: it keeps the class's type information in this library alone, so that a handler in
// another shared library recognises the type also with libc++ and hidden visibility.
ConfigurationManagerError::~ConfigurationManagerError() = default;

std::string_view ConfigurationManagerError::domain() noexcept {
    return "KestrinConfigManager.ConfigurationManagerError";
}

std::string_view ConfigurationManagerError::advice() const noexcept {
    return wordingOf(value_).advice;
}

}  // namespace KestrinConfigManager
