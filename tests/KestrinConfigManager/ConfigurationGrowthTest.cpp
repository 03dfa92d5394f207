#include <functional>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/WebService.hpp>

#include "support/CallCount.hpp"

namespace {

using KestrinConfigManager::Configuration;
using KestrinConfigManager::parseConfiguration;
using TestSupport::growthOfCalls;

constexpr double mostGrowth = 6;
constexpr int amount = 150;

/// So many members, each with a number in its key.
std::string members(int count, const std::string& key, const std::string& value) {
    std::string text;
    for (int member = 0; member < count; ++member)
        text += (member > 0 ? ",\"" : "\"") + key + std::to_string(member) + "\":" + value;
    return text;
}

std::string withServices(const std::string& services) {
    return R"({"version":1,"parentProfileID":"p","services":{)" + services + "}}";
}

std::string withService(const std::string& keys) {
    return withServices(R"("x":{"url":"https://a/v1",)" + keys + "}");
}

struct Case {
    const char* name;
    std::function<std::string(int count)> text;
    bool isSound;
};

TEST(ConfigurationGrowth, ReadingTakesAsMuchWorkAsThereIsToRead) {
    const std::vector<Case> cases{
        {"services",
         [](int count) { return withServices(members(count, "s", R"({"url":"https://a/v1"})")); },
         true},
        {"services that are none", [](int count) { return withServices(members(count, "s", "1")); },
         false},
        {"headers",
         [](int count) {
             return withService(R"("headers":{)" + members(count, "h", "\"v\"") + "}");
         },
         true},
        {"headers that are none",
         [](int count) { return withService(R"("headers":{)" + members(count, "h", "1") + "}"); },
         false},
        {"query parameters",
         [](int count) { return withService(R"("query":{)" + members(count, "q", "\"v\"") + "}"); },
         true},
        {"unknown keys", [](int count) { return withService(members(count, "k", "1")); }, false},
        {"repeated keys",
         [](int count) {
             return withServices(members(count, "s", R"({"url":"https://a/v1"})") + "," +
                                 members(count, "s", "1"));
         },
         false},
        {"hosts",
         [](int count) {
             std::string hosts = "\"h\"";
             for (int host = 0; host < count; ++host)
                 hosts += ",\"h" + std::to_string(host) + '"';
             return R"({"version":1,"parentProfileID":"p","cleartextHosts":[)" + hosts + "]}";
         },
         true}};
    for (const Case& each : cases) {
        const double growth = growthOfCalls(
            [&](int count) {
                const auto result = parseConfiguration(each.text(count));
                EXPECT_EQ(std::holds_alternative<Configuration>(result), each.isSound) << each.name;
            },
            amount);
        EXPECT_GT(growth, 1) << "nothing is counted of " << each.name;
        EXPECT_LT(growth, mostGrowth) << each.name;
    }
}

}  // namespace
