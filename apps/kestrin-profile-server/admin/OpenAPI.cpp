#include <array>
#include <vector>

#include <boost/json.hpp>

#include <internal/ASCII.hpp>
#include <internal/Number.hpp>
#include <internal/Table.hpp>
#include <kestrin-profile-server/admin/OpenAPI.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Dispatcher.hpp>
#include <kestrin-profile-server/http/RequestID.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

constexpr std::string_view schemas = "#/components/schemas/";

json::object reference(std::string_view schema) {
    return {{"$ref", std::string(schemas) + std::string(schema)}};
}

json::object textSchema(std::size_t least = 0) {
    json::object schema{{"type", "string"}, {"maxLength", longestText}};
    if (least > 0) schema["minLength"] = least;
    return schema;
}

json::object arrayOf(json::object items) {
    return {{"type", "array"}, {"items", std::move(items)}};
}

json::object jsonContent(std::string_view type, json::object schema) {
    return {{type, {{"schema", std::move(schema)}}}};
}

// What operations answer.

struct SuccessRow {
    Action action;
    unsigned status;
    std::string_view schema;  ///< empty: no body
    std::string_view description;
};

constexpr std::array<SuccessRow, 12> successRows{{
    {Action::bindAnonymously, 200, "Bind", "The profile's token"},
    {Action::validateName, 200, "ValidName", "The profile could have the name"},
    {Action::createProfile, 201, "Profile", "The new profile"},
    {Action::getProfiles, 200, "Profiles", "The profiles of the household"},
    {Action::editProfile, 200, "Profile", "The profile as it is now"},
    {Action::deleteProfile, 204, "", "The profile is deleted, or was"},
    {Action::getList, 200, "List", "The list, newest first"},
    {Action::getEntry, 200, "List", "The list with the one entry, or none"},
    {Action::addEntry, 204, "", "The entry is in the list"},
    {Action::addEntries, 204, "", "The entries are in the list"},
    {Action::deleteEntry, 204, "", "The entry is not in the list"},
    {Action::clearList, 204, "", "The list is empty"},
}};
static_assert(KestrinInternal::isInOrder(successRows, &SuccessRow::action));

// What bodies hold.

json::object schemaOf(ValueKind kind) {
    switch (kind) {
        case ValueKind::text:
            return textSchema();
        case ValueKind::identifier:
            return textSchema(1);
        case ValueKind::boolean:
            return {{"type", "boolean"}};
        case ValueKind::truthText:
            return {{"type", "string"}, {"enum", {"true", "false"}}};
        case ValueKind::decimalText:
            return {{"type", "string"},
                    {"pattern", "^[0-9]+$"},
                    {"description",
                     "a number from 0 to " + std::to_string(KestrinInternal::largestExactInteger)}};
        case ValueKind::termText:
            return {{"type", "string"}, {"const", "TERM"}};
        case ValueKind::elements:
            return arrayOf(reference("NewElement"));
    }
    return {};
}

json::object schemaOf(std::span<const BodyKey> keys) {
    json::object properties;
    json::array required;
    for (const BodyKey& key : keys) {
        properties[key.name] = schemaOf(key.kind);
        if (key.isRequired) required.push_back(json::value(key.name));
    }
    json::object schema{
        {"type", "object"}, {"properties", std::move(properties)}, {"additionalProperties", false}};
    if (!required.empty()) schema["required"] = std::move(required);
    return schema;
}

json::object objectSchema(json::object properties, json::array required) {
    return {{"type", "object"},
            {"properties", std::move(properties)},
            {"required", std::move(required)}};
}

json::object componentSchemas() {
    const json::object text{{"type", "string"}};
    const json::object truth{{"type", "boolean"}};
    const json::object number{{"type", "integer"}};
    const json::object profile{{"profileId", text},
                               {"username", text},
                               {"avatar", text},
                               {"group", text},
                               {"default", truth}};
    return {
        {"Bind", objectSchema({{"profileId", text}, {"token", text}}, {"profileId", "token"})},
        {"ValidName", objectSchema({{"valid", truth}, {"username", text}}, {"valid", "username"})},
        {"Profile", objectSchema(profile, {"profileId", "username", "default"})},
        {"Profiles", objectSchema({{"data", arrayOf(reference("Profile"))}}, {"data"})},
        {"List",
         objectSchema(
             {{"id", text}, {"maxSize", number}, {"elements", arrayOf(reference("Element"))}},
             {"id", "maxSize", "elements"})},
        {"Element",
         objectSchema({{"id", text},
                       {"type", text},
                       {"progress", number},
                       {"isCompleted", truth},
                       {"autoAddTimestamp", {{"type", "string"}, {"format", "date-time"}}}},
                      {"id", "autoAddTimestamp"})},
        {"NewElement", objectSchema({{"id", textSchema(1)}, {"type", text}}, {"id"})},
        {"Health", objectSchema({{"status", {{"const", "ok"}}}}, {"status"})},
        {"Problem", objectSchema({{"type", {{"type", "string"}, {"format", "uri"}}},
                                  {"title", text},
                                  {"status", number},
                                  {"detail", text},
                                  {"instance", text},
                                  {"requestId", text}},
                                 {"type", "title", "status", "detail", "instance"})}};
}

// The operations.

json::object failureReply() {
    return {{"description", "A problem (RFC 9457); its type says which"},
            {"content", jsonContent("application/problem+json", reference("Problem"))}};
}

json::object parameterOf(std::string_view name, std::string_view in, json::object schema) {
    return {{"name", name}, {"in", in}, {"required", true}, {"schema", std::move(schema)}};
}

json::object requestIDParameter() {
    return {{"name", requestIDHeader},
            {"in", "header"},
            {"required", false},
            {"description", "names the request in the log, the reply and a problem"},
            {"schema", {{"type", "string"}}}};
}

json::array parametersOf(const Route& route) {
    json::array parameters;
    for (const Parameter& parameter : route.parameters)
        parameters.push_back(parameterOf(parameter.name, "query", textSchema()));
    const std::size_t equals = sentinel.find('=');
    json::object last =
        parameterOf(sentinel.substr(0, equals), "query", {{"const", sentinel.substr(equals + 1)}});
    last["description"] = "the last parameter of every query";
    parameters.push_back(std::move(last));
    if (route.access != Access::household)
        parameters.push_back(parameterOf("PXRO-PROFILE-ID", "header", textSchema(1)));
    parameters.push_back(requestIDParameter());
    return parameters;
}

json::object repliesOf(const Route& route) {
    const SuccessRow& row = KestrinInternal::rowOf(successRows, route.action);
    json::object success{{"description", row.description}};
    if (!row.schema.empty())
        success["content"] = jsonContent("application/json", reference(row.schema));
    return {{std::to_string(row.status), std::move(success)}, {"default", failureReply()}};
}

json::object described(const Route& route) {
    json::object operation{
        {"operationId", route.operation},
        {"tags", {"protocol"}},
        {"parameters", parametersOf(route)},
        {"responses", repliesOf(route)},
        {"security", json::array{{{route.access == Access::household ? "householdSecret" : "token",
                                   json::array()}}}}};
    if (route.body.rule != BodyRule::none) {
        operation["requestBody"] = {
            {"required", route.body.rule == BodyRule::required},
            {"content", jsonContent("application/json", schemaOf(route.body.keys))}};
    }
    return operation;
}

/// "{name}" in a path, without the braces.
std::vector<std::string> segmentsIn(std::string_view path) {
    std::vector<std::string> names;
    for (std::size_t at = path.find('{'); at != std::string_view::npos; at = path.find('{', at + 1))
        names.emplace_back(path.substr(at + 1, path.find('}', at) - at - 1));
    return names;
}

/// "POST /admin/v1/faults" as a name for programs: "postFaults".
std::string operationID(const AdminRoute& route) {
    std::string name = KestrinInternal::loweredText(route.method);
    bool isStart = true;
    for (const char each : route.path.substr(std::string_view("/admin").size())) {
        const bool isPart = KestrinInternal::isLetter(each) || KestrinInternal::isDigit(each);
        if (isPart)
            name += isStart && each >= 'a' && each <= 'z' ? static_cast<char>(each - 32) : each;
        isStart = !isPart;
    }
    return name;
}

json::object described(const AdminRoute& route) {
    json::array parameters;
    for (const std::string& name : segmentsIn(route.path))
        parameters.push_back(parameterOf(name, "path", {{"type", "string"}}));
    for (const std::string_view name : route.parameters) {
        json::object parameter = parameterOf(name, "query", {{"type", "string"}});
        parameter["required"] = false;
        parameters.push_back(std::move(parameter));
    }
    json::object operation{{"operationId", operationID(route)},
                           {"tags", {"admin"}},
                           {"summary", route.summary},
                           {"parameters", std::move(parameters)},
                           {"responses",
                            {{"2XX", {{"description", "It is done; the body says what there is"}}},
                             {"default", failureReply()}}}};
    operation["security"] = json::array{{{"adminSecret", json::array()}}, json::object()};
    if (route.method == "POST" || route.method == "PUT") {
        operation["requestBody"] = {{"required", false},
                                    {"content", jsonContent("application/json", json::object())}};
    }
    return operation;
}

json::object healthDescription() {
    return {{"operationId", "health"},
            {"tags", {"service"}},
            {"summary", "Whether the service lives"},
            {"security", json::array()},
            {"responses",
             {{"200",
               {{"description", "It lives"},
                {"content", jsonContent("application/json", reference("Health"))}}}}}};
}

json::object securitySchemes() {
    return {{"token",
             {{"type", "apiKey"},
              {"in", "header"},
              {"name", "Authorization"},
              {"description", "'JWT ' and the token of the last bind"}}},
            {"householdSecret", {{"type", "apiKey"}, {"in", "header"}, {"name", secretHeader}}},
            {"adminSecret", {{"type", "http"}, {"scheme", "bearer"}}}};
}

void add(json::object& paths, std::string_view path, std::string_view method,
         json::object operation) {
    json::value& methods = paths[path];
    if (!methods.is_object()) methods.emplace_object();
    methods.get_object()[KestrinInternal::loweredText(method)] = std::move(operation);
}

}  // namespace

json::object openAPI(const OpenAPISubject& subject) {
    json::object paths;
    for (const Route& route : routes())
        add(paths, route.path, route.method, described(route));
    add(paths, healthPath, "GET", healthDescription());
    for (const AdminRoute& route : subject.adminRoutes) {
        // The rest is a page for people.
        const bool isForPrograms = route.path.starts_with("/admin/v1/");
        if (isForPrograms && (subject.isRoot || !route.isOfRoot))
            add(paths, route.path, route.method, described(route));
    }
    return {
        {"openapi", "3.1.0"},
        {"info",
         {{"title", "Personalization service"},
          {"version", subject.version},
          {"description",
           "What kestrin-profile-server answers. The protocol's rules beyond"
           " the form of messages are in docs/protocol.md."}}},
        {"servers", json::array{{{"url", subject.baseURL}}}},
        {"tags", {{{"name", "protocol"}}, {{"name", "service"}}, {{"name", "admin"}}}},
        {"paths", std::move(paths)},
        {"components", {{"schemas", componentSchemas()}, {"securitySchemes", securitySchemes()}}}};
}

}  // namespace KestrinProfileServer
