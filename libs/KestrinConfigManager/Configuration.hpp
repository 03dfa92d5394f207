#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <KestrinConfigManager/Brand.hpp>
#include <KestrinConfigManager/Export.hpp>

namespace KestrinConfigManager {

class ServiceTable;  // WebService.hpp

/// What the application is configured to talk to. An immutable snapshot once it is in use.
struct Configuration {
    std::string parentProfileID;                   ///< the household's parent profile
    std::optional<Brand> brand;                    ///< absent: the application has none
    std::shared_ptr<const ServiceTable> services;  ///< null: no table
};

/// How bad a problem is.
enum class ProblemSeverity {
    error,    ///< the configuration cannot be used as it is
    warning,  ///< it can be used, but perhaps not as intended
};

/// One thing that is wrong with a configuration.
struct ConfigurationProblem {
    std::string path;     ///< where, e.g. `$.services["personalization-history-get"].url`
    std::string message;  ///< what is there, what was expected; no value of a header
    ProblemSeverity severity = ProblemSeverity::error;  ///< whether it can be used all the same

    friend bool operator==(const ConfigurationProblem&, const ConfigurationProblem&) = default;
};

/// A configuration, or every problem that it has.
using ConfigurationResult = std::variant<Configuration, std::vector<ConfigurationProblem>>;

/// Reads a configuration from its JSON text; the schema is in docs/configuration.md. Checks
/// everything and reports all problems, none of them a warning, at once.
[[nodiscard]] KESTRIN_CONFIG_MANAGER_EXPORT ConfigurationResult
parseConfiguration(std::string_view text);

/// Reads a configuration from a file. A file that cannot be read is a problem at path "$".
[[nodiscard]] KESTRIN_CONFIG_MANAGER_EXPORT ConfigurationResult
loadConfiguration(const std::filesystem::path& file);

}  // namespace KestrinConfigManager
