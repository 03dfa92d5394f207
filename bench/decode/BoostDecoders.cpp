#include <boost/json.hpp>

#include "decode/Decoders.hpp"

namespace Bench {

namespace json = boost::json;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

namespace {

void read(const json::object& from, const char* key, std::optional<std::string>& field) {
    if (const auto* const value = from.if_contains(key); value != nullptr && value->is_string())
        field.emplace(std::string_view(value->get_string()));
}

void read(const json::object& from, const char* key, std::optional<std::int64_t>& field) {
    if (const auto* const value = from.if_contains(key); value != nullptr && value->is_int64())
        field = value->get_int64();
}

void read(const json::object& from, const char* key, std::optional<bool>& field) {
    if (const auto* const value = from.if_contains(key); value != nullptr && value->is_bool())
        field = value->get_bool();
}

void fill(UserProfileElement& element, const json::object& from) {
    read(from, "id", element.id);
    read(from, "type", element.type);
    read(from, "progress", element.progress);
    read(from, "isCompleted", element.isCompleted);
    if (const auto* const value = from.if_contains("autoAddTimestamp");
        value != nullptr && value->is_string())
        element.autoAddTimestamp = dateOf(value->get_string());
}

UserProfile listOf(const json::value& document) {
    const json::object& top = document.as_object();
    UserProfile list = emptyRecord();
    read(top, "id", list.id);
    read(top, "maxSize", list.maxSize);
    const json::array& elements = top.at("elements").as_array();
    list.elements.emplace().reserve(elements.size());
    for (const json::value& element : elements)
        fill(list.elements->emplace_back(), element.as_object());
    return list;
}

}  // namespace

UserProfile decodeWithBoost(const HalvardSling::Response& reply) {
    return listOf(json::parse(reply.body()));
}

UserProfile decodeWithBoostMonotonic(const HalvardSling::Response& reply) {
    json::monotonic_resource resource;
    return listOf(json::parse(reply.body(), &resource));
}

}  // namespace Bench
