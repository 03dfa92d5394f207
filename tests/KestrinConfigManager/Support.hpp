#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/BindStore.hpp>
#include <KestrinConfigManager/Configuration.hpp>

namespace KestrinConfigManager {

/// For GoogleTest's messages.
inline void PrintTo(const ConfigurationProblem& problem, std::ostream* out) {
    *out << "{" << problem.path << ": " << problem.message << "}";
}

}  // namespace KestrinConfigManager

namespace TestSupport {

/// A record that answers what a test tells it to.
struct Params final : KestrinConfigManager::APIParams {
    using TextMap = KestrinConfigManager::TextMap;

    std::optional<TextMap> someHeaders;
    std::optional<HalvardSling::JSONDictionary> dictionary;
    std::optional<std::string> encoded;
    std::optional<TextMap> mapping;
    std::optional<TextMap> query;
    bool valid = true;
    bool withoutUserAgent = false;

    [[nodiscard]] std::optional<TextMap> headers() const override { return someHeaders; }
    [[nodiscard]] std::optional<HalvardSling::JSONDictionary> dictionaryRepresentation()
        const override {
        return dictionary;
    }
    [[nodiscard]] std::optional<std::string> urlEncodedString() const override { return encoded; }
    [[nodiscard]] bool hasValidParams() const override { return valid; }
    [[nodiscard]] std::optional<TextMap> URLMapping() const override { return mapping; }
    [[nodiscard]] std::optional<TextMap> queryParameters() const override { return query; }
    [[nodiscard]] bool removeUserAgent() const override { return withoutUserAgent; }
};

inline std::string base64url(std::string_view bytes) {
    static constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string result;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8 | (i < count ? static_cast<unsigned char>(bytes[at + i]) : 0U);
        for (std::size_t i = 0; i <= count; ++i)
            result += alphabet[group >> (18 - 6 * i) & 63];
    }
    return result;
}

/// A name with a number: "p1".
inline std::string numbered(std::string_view name, std::integral auto number) {
    return std::string(name).append(std::to_string(number));
}

/// A JSON Web Token with this payload. Nobody here checks its signature.
inline std::string webToken(std::string_view payload) {
    return base64url(R"({"alg":"none"})") + '.' + base64url(payload) + ".signature";
}

/// One bind in the form that a store sees it.
inline KestrinConfigManager::HeldBinds held(std::uint64_t revision, std::string profileID,
                                            std::string token) {
    KestrinConfigManager::HeldBinds result;
    result.selectedProfileID = profileID;
    result.binds.emplace_back(std::move(profileID), std::move(token));
    result.revision = revision;
    return result;
}

}  // namespace TestSupport
