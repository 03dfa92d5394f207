#include <stdexcept>

#define RAPIDJSON_HAS_STDSTRING 1
#include <rapidjson/document.h>

#include "decode/Decoders.hpp"

namespace Bench {

using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;
using rapidjson::Value;

namespace {

const Value* find(const Value& from, const char* key) {
    const auto found = from.FindMember(key);
    return found == from.MemberEnd() ? nullptr : &found->value;
}

std::string_view textOf(const Value& value) {
    return {value.GetString(), value.GetStringLength()};
}

void read(const Value& from, const char* key, std::optional<std::string>& field) {
    if (const Value* const value = find(from, key); value != nullptr && value->IsString())
        field.emplace(textOf(*value));
}

void read(const Value& from, const char* key, std::optional<std::int64_t>& field) {
    if (const Value* const value = find(from, key); value != nullptr && value->IsInt64())
        field = value->GetInt64();
}

void read(const Value& from, const char* key, std::optional<bool>& field) {
    if (const Value* const value = find(from, key); value != nullptr && value->IsBool())
        field = value->GetBool();
}

void fill(UserProfileElement& element, const Value& from) {
    read(from, "id", element.id);
    read(from, "type", element.type);
    read(from, "progress", element.progress);
    read(from, "isCompleted", element.isCompleted);
    if (const Value* const value = find(from, "autoAddTimestamp");
        value != nullptr && value->IsString())
        element.autoAddTimestamp = dateOf(textOf(*value));
}

}  // namespace

UserProfile decodeWithRapidJSON(const HalvardSling::Response& reply) {
    rapidjson::Document document;
    document.Parse(reply.body().data(), reply.body().size());
    if (document.HasParseError() || !document.IsObject()) throw std::runtime_error("refused");
    UserProfile list = emptyRecord();
    read(document, "id", list.id);
    read(document, "maxSize", list.maxSize);
    const Value* const elements = find(document, "elements");
    if (elements == nullptr || !elements->IsArray()) throw std::runtime_error("no elements");
    list.elements.emplace().reserve(elements->Size());
    for (const Value& element : elements->GetArray())
        fill(list.elements->emplace_back(), element);
    return list;
}

}  // namespace Bench
