#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace KestrinProfileServer {

/// What a query parameter is for.
enum class ParameterRole { profile, brand, item, name };

/// One query parameter and the placeholder that a client's URL template has in its place.
struct Parameter {
    std::string_view name;
    std::string_view placeholder;
    ParameterRole role;
};

/// The values of a query by their role.
class QueryValues {
  public:
    /// The value; empty when the route has no such parameter.
    [[nodiscard]] const std::string& operator[](ParameterRole role) const {
        return values_[indexOf(role)];
    }
    [[nodiscard]] std::string& operator[](ParameterRole role) { return values_[indexOf(role)]; }

  private:
    [[nodiscard]] static std::size_t indexOf(ParameterRole role) {
        return static_cast<std::size_t>(role);
    }

    std::array<std::string, 4> values_;
};

/// The last parameter of every query. A '#' in an identifier cuts a URL short on its way; then
/// this is missing, and the rest of the identifier is not taken for the whole.
constexpr std::string_view sentinel = "v=1";

/// The decoded values of exactly the given parameters; throws the problem that names the first
/// fault.
[[nodiscard]] QueryValues parsedQuery(std::string_view query,
                                      std::span<const Parameter> parameters);

/// The value of one parameter in a query that may have any fault; absent if it is not there or
/// cannot be decoded. For what is told about a request, never for what is done.
[[nodiscard]] std::optional<std::string> valueIn(std::string_view query, std::string_view name);

}  // namespace KestrinProfileServer
