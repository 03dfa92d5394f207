#include <nlohmann/json.hpp>

#include "decode/Decoders.hpp"

namespace Bench {

using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;
using nlohmann::json;

namespace {

const json* find(const json& from, const char* key) {
    const auto found = from.find(key);
    return found == from.end() ? nullptr : &*found;
}

void read(const json& from, const char* key, std::optional<std::string>& field) {
    if (const json* const value = find(from, key); value != nullptr && value->is_string())
        field = value->get_ref<const std::string&>();
}

void read(const json& from, const char* key, std::optional<std::int64_t>& field) {
    if (const json* const value = find(from, key); value != nullptr && value->is_number_integer())
        field = value->get<std::int64_t>();
}

void read(const json& from, const char* key, std::optional<bool>& field) {
    if (const json* const value = find(from, key); value != nullptr && value->is_boolean())
        field = value->get<bool>();
}

void fill(UserProfileElement& element, const json& from) {
    read(from, "id", element.id);
    read(from, "type", element.type);
    read(from, "progress", element.progress);
    read(from, "isCompleted", element.isCompleted);
    if (const json* const value = find(from, "autoAddTimestamp");
        value != nullptr && value->is_string())
        element.autoAddTimestamp = dateOf(value->get_ref<const std::string&>());
}

}  // namespace

UserProfile decodeWithNlohmann(const HalvardSling::Response& reply) {
    const json document = json::parse(reply.body());
    UserProfile list = emptyRecord();
    read(document, "id", list.id);
    read(document, "maxSize", list.maxSize);
    const json& elements = document.at("elements");
    list.elements.emplace().reserve(elements.size());
    for (const json& element : elements)
        fill(list.elements->emplace_back(), element);
    return list;
}

}  // namespace Bench
