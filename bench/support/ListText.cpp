#include "support/ListText.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <string_view>
#include <utility>

namespace Bench {

namespace {

using Members = std::array<std::string, 5>;

std::string numbered(const char* format, unsigned number) {
    std::array<char, 64> text{};
    const int length = std::snprintf(text.data(), text.size(), format, number);
    return {text.data(), static_cast<std::size_t>(length)};
}

Members membersOf(std::mt19937& random) {
    const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    return {numbered(R"("id":"5f0c1a77-video-%010u")", below(1'000'000'000)), R"("type":"video")",
            numbered(R"("progress":%u)", 1'000'000 + below(6'000'000)),
            below(2) == 0 ? R"("isCompleted":true)" : R"("isCompleted":false)",
            R"("autoAddTimestamp":")" + numbered("20%02u-", 10 + below(20)) +
                numbered("%02u-", 1 + below(12)) + numbered("%02uT", 1 + below(28)) +
                numbered("%02u:", below(24)) + numbered("%02u:", below(60)) +
                numbered("%02u.", below(60)) + numbered("%03uZ\"", below(1000))};
}

}  // namespace

std::string listText(std::size_t entries, KeyOrder order) {
    std::mt19937 random(20170309);
    std::string text = R"({"id":"household-1","maxSize":500,"elements":[)";
    text.reserve(text.size() + entries * 140);
    for (std::size_t entry = 0; entry < entries; ++entry) {
        Members members = membersOf(random);
        if (order == KeyOrder::shuffled) std::ranges::shuffle(members, random);
        if (entry > 0) text += ',';
        char before = '{';
        for (const auto& member : members)
            (text += std::exchange(before, ',')) += member;
        text += '}';
    }
    return text + "]}";
}

}  // namespace Bench
