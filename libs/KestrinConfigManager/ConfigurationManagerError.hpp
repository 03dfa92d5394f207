#pragma once

#include <exception>
#include <stdexcept>
#include <string_view>

#include <KestrinConfigManager/Export.hpp>

namespace KestrinConfigManager {

/// Why the configuration does not let a request go out. It arrives as an observable's error.
class KESTRIN_CONFIG_MANAGER_EXCEPTION ConfigurationManagerError final : public std::exception {
  public:
    /// The reasons; the position is the error's code.
    enum class Case {
        /// The record says that it is incomplete (`hasValidParams` is false).
        invalidParameters,
        /// The configuration switches the service off.
        serviceDisabled,
        /// The record has no value for a placeholder of the service's URL template.
        placeholderUnfilled,
        /// The application is not configured, or its configuration has no service for the
        /// operation.
        serviceNotConfigured,
        /// The configuration's strict mode refuses an identifier that holds `?`, `#` or `/`.
        identifierRefused,
    };

    /// The error of each reason without operation and detail, to throw and to compare with.
    /// @{
    static const ConfigurationManagerError invalidParameters;
    static const ConfigurationManagerError serviceDisabled;
    static const ConfigurationManagerError placeholderUnfilled;
    static const ConfigurationManagerError serviceNotConfigured;
    static const ConfigurationManagerError identifierRefused;
    /// @}

    /// @param value      the reason
    /// @param operation  the name of the operation, for the text; may be empty
    /// @param detail     what exactly is wrong, for the text; no value of a header or a token
    explicit ConfigurationManagerError(Case value, std::string_view operation = {},
                                       std::string_view detail = {});

    ConfigurationManagerError(const ConfigurationManagerError&) = default;
    ConfigurationManagerError(ConfigurationManagerError&&) = default;
    ConfigurationManagerError& operator=(const ConfigurationManagerError&) = default;
    ConfigurationManagerError& operator=(ConfigurationManagerError&&) = default;
    ~ConfigurationManagerError() override;

    /// The reason, for a `switch`.
    [[nodiscard]] Case value() const noexcept { return value_; }
    /// The reason's position.
    [[nodiscard]] int code() const noexcept { return static_cast<int>(value_); }
    /// "KestrinConfigManager.ConfigurationManagerError".
    [[nodiscard]] static std::string_view domain() noexcept;
    /// What the caller should do about it.
    [[nodiscard]] std::string_view advice() const noexcept;
    /// The reason's name, operation, meaning, detail and advice.
    [[nodiscard]] const char* what() const noexcept override { return text_.what(); }

    /// Two errors are equal when they have the same reason.
    friend bool operator==(const ConfigurationManagerError& left,
                           const ConfigurationManagerError& right) noexcept {
        return left.value_ == right.value_;
    }

  private:
    Case value_;
    std::runtime_error text_;  // a text whose copies cannot fail, as those of an error must not
};

}  // namespace KestrinConfigManager
