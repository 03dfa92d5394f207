// What the service says about itself is whole, and is what it does.
#include <map>
#include <set>
#include <string>

#include <gmock/gmock.h>

#include <kestrin-profile-server/admin/AdminRoutes.hpp>

#include "AdminSupport.hpp"

namespace KestrinProfileServer::Testing {
namespace {

namespace json = boost::json;

class OpenAPITest : public AdminClientTest {
  protected:
    /// Calls with every object of the document, and where it is.
    template <class Use>
    static void forEachObject(const json::value& value, const Use& use,
                              const std::string& place = "#") {
        if (const auto* const object = value.if_object()) {
            use(*object, place);
            for (const auto& member : *object)
                forEachObject(member.value(), use, place + "/" + std::string(member.key()));
        }
        if (const auto* const array = value.if_array())
            for (const auto& each : *array)
                forEachObject(each, use, place + "[]");
    }

    /// Calls with each operation and its address, like "PUT /v1/history/video".
    template <class Use>
    void forEachOperation(const Use& use) const {
        for (const auto& path : document.at("paths").as_object()) {
            for (const auto& method : path.value().as_object())
                use(std::string(method.key()) + " " + std::string(path.key()),
                    method.value().as_object());
        }
    }

    json::value document = get("/openapi.json");
};

std::string lowered(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](unsigned char each) {
        return static_cast<char>(std::tolower(each));
    });
    return result;
}

TEST_F(OpenAPITest, hasEveryRouteAndNoOther) {
    std::set<std::string> expected{"get /healthz"};
    for (const Route& route : routes())
        expected.insert(lowered(route.method) + " " + std::string(route.path));
    for (const AdminRoute& route : adminRoutes())
        if (route.path.starts_with("/admin/v1/"))
            expected.insert(lowered(route.method) + " " + std::string(route.path));
    std::set<std::string> found;
    forEachOperation(
        [&](const std::string& address, const json::object&) { found.insert(address); });
    EXPECT_EQ(found, expected);
    EXPECT_EQ(document.at("openapi"), "3.1.0");
    EXPECT_EQ(document.at("servers").at(0).at("url").as_string(), service.baseURL());
}

TEST_F(OpenAPITest, referencesLeadSomewhere) {
    int count = 0;
    forEachObject(document, [&](const json::object& object, const std::string& place) {
        const auto* const reference = object.if_contains("$ref");
        if (reference == nullptr) return;
        ++count;
        const std::string pointer = std::string(reference->as_string()).substr(1);
        boost::system::error_code error;
        EXPECT_NE(document.find_pointer(pointer, error), nullptr) << place << " " << pointer;
    });
    EXPECT_GT(count, 40);
}

TEST_F(OpenAPITest, operationsHaveWhatTheFormatWants) {
    std::set<std::string> ids;
    std::set<std::string> schemes;
    for (const auto& scheme : document.at("components").at("securitySchemes").as_object())
        schemes.emplace(scheme.key());
    forEachOperation([&](const std::string& address, const json::object& operation) {
        EXPECT_TRUE(ids.emplace(operation.at("operationId").as_string()).second) << address;
        ASSERT_FALSE(operation.at("responses").as_object().empty()) << address;
        for (const auto& reply : operation.at("responses").as_object())
            EXPECT_TRUE(reply.value().as_object().contains("description")) << address;
        std::set<std::string> inPath;
        if (const auto* const parameters = operation.if_contains("parameters")) {
            for (const auto& each : parameters->as_array()) {
                EXPECT_TRUE(each.at("schema").is_object()) << address;
                if (each.at("in") == "path") {
                    EXPECT_EQ(each.at("required"), true) << address;
                    inPath.emplace(each.at("name").as_string());
                }
            }
        }
        for (const std::string& name : inPath)
            EXPECT_NE(address.find("{" + name + "}"), std::string::npos) << address;
        EXPECT_EQ(static_cast<std::ptrdiff_t>(inPath.size()), std::ranges::count(address, '{'));
        const auto* const security = operation.if_contains("security");
        if (security == nullptr) return;
        for (const auto& each : security->as_array()) {
            for (const auto& scheme : each.as_object())
                EXPECT_TRUE(schemes.contains(std::string(scheme.key()))) << address;
        }
    });
}

/// Whether a value has the form of a schema, as far as our schemas go.
bool fits(const json::value& value, const json::object& schema, const json::value& document) {
    if (const auto* const reference = schema.if_contains("$ref")) {
        boost::system::error_code error;
        const auto* const meant =
            document.find_pointer(std::string(reference->as_string()).substr(1), error);
        return meant != nullptr && fits(value, meant->as_object(), document);
    }
    if (const auto* const constant = schema.if_contains("const")) return value == *constant;
    const auto* const type = schema.if_contains("type");
    if (type == nullptr) return true;
    if (*type == "string") return value.is_string();
    if (*type == "integer") return value.is_int64();
    if (*type == "boolean") return value.is_bool();
    if (*type == "array") {
        return value.is_array() && std::ranges::all_of(value.as_array(), [&](const auto& each) {
                   return fits(each, schema.at("items").as_object(), document);
               });
    }
    if (!value.is_object()) return false;
    for (const auto& name : schema.at("required").as_array())
        if (!value.as_object().contains(name.as_string())) return false;
    return std::ranges::all_of(value.as_object(), [&](const auto& member) {
        const auto* const known = schema.at("properties").as_object().if_contains(member.key());
        return known != nullptr && fits(member.value(), known->as_object(), document);
    });
}

TEST_F(OpenAPITest, repliesAreWhatItSays) {
    const std::map<std::string, std::string> bodies{
        {"personalization-create-profile", R"({"username":"Ben","avatar":"a"})"},
        {"personalization-edit-profile", R"({"username":"Cleo"})"},
        {"personalization-history-add-video", R"({"isCompleted":"false","progress":"42"})"},
        {"personalization-favorites-add-shows", R"({"elements":[{"id":"s1","type":"SHOW"}]})"}};
    int withBody = 0;
    for (const Route& route : routes()) {
        const std::string operation(route.operation);
        const Caller kid = client.create(parent, "Anna");
        std::string target = urlTemplate(route);
        const bool isParents = route.access == Access::parent;
        for (const auto& [placeholder, value] : std::map<std::string, std::string>{
                 {"%UXID%", isParents ? parent.profileID : kid.profileID},
                 {"%BRANDNAME%", "b"},
                 {"%VIDEO%", "v1"},
                 {"%SHOWID%", "s1"},
                 {"%USERNAME%", "Dora"},
                 {"%SEARCH%", "ships"}}) {
            target = replaced(target, placeholder, value);
        }
        client.call(parent, "PUT",
                    "/v1/history/video?video=v1&brand=b&profile=" + kid.profileID + "&v=1",
                    R"({"type":"VIDEO"})");
        const auto reply =
            route.access == Access::household
                ? client.tryBind(kid.profileID)
                : client.call(parent, std::string(route.method), target,
                              bodies.contains(operation) ? bodies.at(operation) : "");
        const auto& described = document.at("paths")
                                    .at(std::string(route.path))
                                    .at(lowered(route.method))
                                    .at("responses")
                                    .as_object();
        const auto* const expected = described.if_contains(std::to_string(reply.status));
        ASSERT_NE(expected, nullptr) << operation << " " << reply.status;
        const auto* const content = expected->as_object().if_contains("content");
        EXPECT_EQ(content == nullptr, reply.body.empty()) << operation;
        if (content != nullptr) {
            ++withBody;
            EXPECT_TRUE(fits(reply.json(), content->at("application/json").at("schema").as_object(),
                             document))
                << operation << " " << reply.body;
        }
        client.call(parent, "DELETE", "/v1/profile?target=" + kid.profileID + "&v=1");
    }
    EXPECT_EQ(withBody, 9);
    const auto problem = client.http.send("GET", "/v1/nowhere");
    EXPECT_TRUE(fits(problem.json(),
                     document.at("components").at("schemas").at("Problem").as_object(), document));
}

TEST(OpenAPIWithoutAdminTest, hasTheProtocolOnly) {
    TestService service;
    HttpClient client(service.baseURL());
    const auto reply = client.send("GET", "/openapi.json");
    ASSERT_EQ(outcomeOf(reply), "200");
    const auto paths = reply.json().at("paths").as_object();
    for (const auto& path : paths)
        EXPECT_FALSE(path.key().starts_with("/admin")) << path.key();
    EXPECT_EQ(outcomeOf(client.send("POST", "/openapi.json")), "405 method-not-allowed");
}

}  // namespace
}  // namespace KestrinProfileServer::Testing
