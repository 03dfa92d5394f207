#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace KestrinProfileServer {

/// An object in the body of an admin request. What is wrong with it is thrown as a problem that
/// names the place.
class KnownMembers {
  public:
    /// @param place  what a message calls the object, e.g. "the body"
    /// @param known  all members that it may have
    KnownMembers(const boost::json::value& value, std::string place,
                 std::span<const std::string_view> known);
    KnownMembers(const boost::json::value& value, std::string place,
                 std::initializer_list<std::string_view> known)
        : KnownMembers(value, std::move(place), std::span(known.begin(), known.size())) {}

    /// The member; null if it is absent or null.
    [[nodiscard]] const boost::json::value* find(std::string_view name) const;

    [[nodiscard]] std::optional<std::string> text(std::string_view name) const;
    [[nodiscard]] std::optional<bool> truth(std::string_view name) const;
    [[nodiscard]] std::optional<double> number(std::string_view name, double least,
                                               double most) const;
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view name, std::int64_t least,
                                                      std::int64_t most) const;

    /// The same of members that must be there.
    [[nodiscard]] std::string requiredText(std::string_view name) const;
    [[nodiscard]] std::int64_t requiredInteger(std::string_view name, std::int64_t least,
                                               std::int64_t most) const;

    /// @param expected  what the member has to be, e.g. "a text"
    [[noreturn]] void refuse(std::string_view name, const std::string& expected) const;

    [[nodiscard]] const std::string& place() const { return place_; }

  private:
    std::string place_;
    const boost::json::object* object_ = nullptr;
};

}  // namespace KestrinProfileServer
