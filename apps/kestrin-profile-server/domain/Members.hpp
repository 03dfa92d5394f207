#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <kestrin-profile-server/domain/Timestamp.hpp>

namespace KestrinProfileServer {

/// Reads the members of a JSON object one by one, for bodies that people write. Each function
/// throws the problem of a member that is there and no such value; `null` is no value. Whoever has
/// asked for all that there may be calls `finish`, which throws the problem of a member that is
/// left.
class Members {
  public:
    /// @param value  an object that lives as long as this, else the problem is thrown
    /// @param place  what messages call it, like "the body.households[0]"
    Members(const boost::json::value& value, std::string place);

    [[nodiscard]] std::optional<std::string> text(std::string_view name);
    [[nodiscard]] std::optional<bool> boolean(std::string_view name);
    [[nodiscard]] std::optional<std::int64_t> integer(
        std::string_view name, std::int64_t least = std::numeric_limits<std::int64_t>::min(),
        std::int64_t most = std::numeric_limits<std::int64_t>::max());
    [[nodiscard]] std::optional<double> number(std::string_view name);
    [[nodiscard]] std::optional<Milliseconds> time(std::string_view name);
    /// Null if it is not there.
    [[nodiscard]] const boost::json::array* array(std::string_view name);
    /// Any value; null if it is not there.
    [[nodiscard]] const boost::json::value* value(std::string_view name);

    [[nodiscard]] std::string requiredText(std::string_view name);
    [[nodiscard]] bool requiredBoolean(std::string_view name);

    /// What messages call a member.
    [[nodiscard]] std::string placeOf(std::string_view name) const;

    /// Throws the problem of a member that nobody asked for.
    void finish() const;

    /// Throws the problem of a member.
    [[noreturn]] void refuse(std::string_view name, const std::string& expected) const;

  private:
    const boost::json::object& object_;
    std::string place_;
    std::vector<std::string_view> known_;
};

/// The time that a text of the form 2017-03-09T18:25:43.511Z tells, the fraction with up to three
/// digits or left out (RFC 3339, in UTC); absent for other texts.
[[nodiscard]] std::optional<Milliseconds> timeIn(std::string_view text);

}  // namespace KestrinProfileServer
