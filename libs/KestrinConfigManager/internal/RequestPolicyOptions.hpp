#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include <HalvardSling/http/RequestPolicy.hpp>

namespace KestrinConfigManager::internal {

/// An integer of a configuration file that is part of a `RequestPolicy`.
struct RequestPolicyOption {
    using Policy = HalvardSling::RequestPolicy;

    std::string_view key;
    std::int64_t least;
    std::int64_t greatest;
    void (*set)(Policy& policy, std::int64_t value);
    std::int64_t (*get)(const Policy& policy);
};

/// An option whose member is a number of another type or a duration.
template <auto Member>
constexpr RequestPolicyOption requestPolicyOption(std::string_view key, std::int64_t least,
                                                  std::int64_t greatest) {
    using Policy = RequestPolicyOption::Policy;
    using Value = std::remove_cvref_t<decltype(Policy().*Member)>;
    const auto get = [](const Policy& policy) {
        if constexpr (std::is_same_v<Value, std::chrono::milliseconds>)
            return std::int64_t{(policy.*Member).count()};
        else
            return static_cast<std::int64_t>(policy.*Member);
    };
    const auto set = [](Policy& policy, std::int64_t value) {
        policy.*Member = static_cast<Value>(value);
    };
    return {key, least, greatest, set, get};
}

inline constexpr std::int64_t longestTimeout = std::int64_t{24} * 60 * 60 * 1000;
inline constexpr std::int64_t largestBody = std::int64_t{1} << 30;
inline constexpr std::int64_t largestHeaders = std::int64_t{1} << 20;

/// All of them; each stands at the top of the file, for all services, or in a service.
inline constexpr std::array<RequestPolicyOption, 5> requestPolicyOptions = [] {
    using Policy = RequestPolicyOption::Policy;
    return std::array{
        requestPolicyOption<&Policy::connectTimeout>("connectTimeoutMilliseconds", 1,
                                                     longestTimeout),
        requestPolicyOption<&Policy::totalTimeout>("totalTimeoutMilliseconds", 1, longestTimeout),
        requestPolicyOption<&Policy::maxBodyBytes>("maxBodyBytes", 1, largestBody),
        requestPolicyOption<&Policy::maxHeaderBytes>("maxHeaderBytes", 1, largestHeaders),
        requestPolicyOption<&Policy::maxRedirects>("maxRedirects", 0, 20),
    };
}();

}  // namespace KestrinConfigManager::internal
