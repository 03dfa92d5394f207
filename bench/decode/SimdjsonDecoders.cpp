#include <simdjson.h>

#include "decode/Decoders.hpp"

namespace Bench {

namespace dom = simdjson::dom;
namespace ondemand = simdjson::ondemand;
using KestrinProfile::UserProfile;
using KestrinProfile::UserProfileElement;

namespace {

template <class Value>
void read(const dom::object& from, const char* key, std::optional<Value>& field) {
    using Read = std::conditional_t<std::is_same_v<Value, std::string>, std::string_view, Value>;
    Read value{};
    if (from.at_key(key).get(value) == simdjson::SUCCESS) field.emplace(value);
}

void fill(UserProfileElement& element, const dom::object& from) {
    read(from, "id", element.id);
    read(from, "type", element.type);
    read(from, "progress", element.progress);
    read(from, "isCompleted", element.isCompleted);
    std::string_view date;
    if (from.at_key("autoAddTimestamp").get(date) == simdjson::SUCCESS)
        element.autoAddTimestamp = dateOf(date);
}

template <class Value>
void read(ondemand::object& from, const char* key, std::optional<Value>& field) {
    using Read = std::conditional_t<std::is_same_v<Value, std::string>, std::string_view, Value>;
    Read value{};
    if (from.find_field_unordered(key).get(value) == simdjson::SUCCESS) field.emplace(value);
}

void fill(UserProfileElement& element, ondemand::object from) {
    read(from, "id", element.id);
    read(from, "type", element.type);
    read(from, "progress", element.progress);
    read(from, "isCompleted", element.isCompleted);
    std::string_view date;
    if (from.find_field_unordered("autoAddTimestamp").get(date) == simdjson::SUCCESS)
        element.autoAddTimestamp = dateOf(date);
}

// Both keep their parser from reply to reply, which is the best case for them. Their input must be
// padded, so it is copied.
std::optional<dom::parser> domParser;
std::optional<ondemand::parser> onDemandParser;

template <class Parser>
Parser& kept(std::optional<Parser>& parser) {
    if (!parser) parser.emplace();
    return *parser;
}

}  // namespace

void forgetSimdjsonParsers() {
    domParser.reset();
    onDemandParser.reset();
}

UserProfile decodeWithSimdjsonDOM(const HalvardSling::Response& reply) {
    const dom::object top =
        kept(domParser).parse(simdjson::padded_string(reply.body())).get_object();
    UserProfile list = emptyRecord();
    read(top, "id", list.id);
    read(top, "maxSize", list.maxSize);
    const dom::array elements = top.at_key("elements").get_array();
    list.elements.emplace().reserve(elements.size());
    for (const dom::element element : elements)
        fill(list.elements->emplace_back(), element.get_object());
    return list;
}

UserProfile decodeWithSimdjsonOnDemand(const HalvardSling::Response& reply) {
    const simdjson::padded_string text(reply.body());
    ondemand::document document = kept(onDemandParser).iterate(text);
    ondemand::object top = document.get_object();
    UserProfile list = emptyRecord();
    read(top, "id", list.id);
    read(top, "maxSize", list.maxSize);
    list.elements.emplace();
    ondemand::array elements = top.find_field_unordered("elements").get_array();
    for (ondemand::value element : elements)
        fill(list.elements->emplace_back(), element.get_object());
    return list;
}

}  // namespace Bench
