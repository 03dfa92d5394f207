#include <algorithm>
#include <cmath>

#include <boost/json.hpp>

#include <internal/Quoting.hpp>
#include <kestrin-profile-server/admin/KnownMembers.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

[[noreturn]] void refuseBody(const std::string& detail) {
    throw Problem(ProblemKind::invalidRequest, detail);
}

std::string limitText(double limit) {
    return json::serialize(limit == std::floor(limit)
                               ? json::value(static_cast<std::int64_t>(limit))
                               : json::value(limit));
}

}  // namespace

KnownMembers::KnownMembers(const json::value& value, std::string place,
                           std::span<const std::string_view> known)
    : place_(std::move(place)), object_(value.if_object()) {
    if (object_ == nullptr) refuseBody(place_ + " is no object; expected is one");
    for (const auto& member : *object_) {
        const std::string_view name = member.key();
        if (std::ranges::find(known, name) == known.end()) {
            refuseBody(place_ + " has the unexpected member '" + excerptOf(name) + "'" +
                       KestrinInternal::suggestion(name, known));
        }
    }
}

const json::value* KnownMembers::find(std::string_view name) const {
    const json::value* const found = object_->if_contains(name);
    return found == nullptr || found->is_null() ? nullptr : found;
}

void KnownMembers::refuse(std::string_view name, const std::string& expected) const {
    const json::value* const value = find(name);
    refuseBody(place_ + "." + std::string(name) + " is " +
               (value == nullptr ? "missing" : excerptOf(json::serialize(*value))) +
               "; expected is " + expected);
}

std::optional<std::string> KnownMembers::text(std::string_view name) const {
    const json::value* const value = find(name);
    if (value == nullptr) return std::nullopt;
    if (!value->is_string()) refuse(name, "a text");
    return std::string(value->get_string());
}

std::optional<bool> KnownMembers::truth(std::string_view name) const {
    const json::value* const value = find(name);
    if (value == nullptr) return std::nullopt;
    if (!value->is_bool()) refuse(name, "true or false");
    return value->get_bool();
}

std::optional<double> KnownMembers::number(std::string_view name, double least, double most) const {
    const json::value* const value = find(name);
    if (value == nullptr) return std::nullopt;
    const std::string expected = "a number from " + limitText(least) + " to " + limitText(most);
    if (!value->is_number()) refuse(name, expected);
    const auto number = value->to_number<double>();
    if (number < least || number > most) refuse(name, expected);
    return number;
}

std::optional<std::int64_t> KnownMembers::integer(std::string_view name, std::int64_t least,
                                                  std::int64_t most) const {
    const json::value* const value = find(name);
    if (value == nullptr) return std::nullopt;
    const auto* const number = value->if_int64();
    if (number == nullptr || *number < least || *number > most)
        refuse(name, "an integer from " + std::to_string(least) + " to " + std::to_string(most));
    return *number;
}

std::string KnownMembers::requiredText(std::string_view name) const {
    auto value = text(name);
    if (!value) refuse(name, "a text");
    return *std::move(value);
}

std::int64_t KnownMembers::requiredInteger(std::string_view name, std::int64_t least,
                                           std::int64_t most) const {
    const auto value = integer(name, least, most);
    if (!value)
        refuse(name, "an integer from " + std::to_string(least) + " to " + std::to_string(most));
    return *value;
}

}  // namespace KestrinProfileServer
