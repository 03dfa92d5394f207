#include <array>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <variant>

#include <curl/curl.h>
#include <gmock/gmock.h>

#include <HalvardSling/http/URL.hpp>

using namespace HalvardSling;

namespace {

std::string partOf(CURLU* url, CURLUPart part) {
    char* text = nullptr;
    if (curl_url_get(url, part, &text, CURLU_DEFAULT_PORT) != CURLUE_OK) return {};
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
    return text;
}

/// Host and port as libcurl reads them; empty if it refuses the URL.
std::string authorityForCurl(const std::string& url) {
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
    if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_PATH_AS_IS) != CURLUE_OK)
        return {};
    return partOf(parsed.get(), CURLUPART_HOST) + ':' + partOf(parsed.get(), CURLUPART_PORT);
}

TEST(URLAgainstCurl, WhatIsAcceptedHasTheSameHostAndPortForLibcurl) {
    static constexpr std::array<std::string_view, 24> pieces{
        "a",         "b.",    "example",      "xn--a", "-", "_", "~", ".",   "1",     "0",
        "127.0.0.1", "255",   "0x7f",         "[::1]", "[", "]", ":", ":80", ":0443", "%41",
        "@",         "1.2.3", "[2001:db8::]", "!"};
    std::minstd_rand random(1);  // NOLINT(cert-msc51-cpp): the same cases each time
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1);
    std::uniform_int_distribution<int> count(1, 4);
    int accepted = 0;
    for (int round = 0; round < 20'000; ++round) {
        std::string url = "https://";
        for (int left = count(random); left > 0; --left)
            url += pieces.at(piece(random));
        const auto parsed = URL::parse(url + "/x");
        const auto* const ours = std::get_if<URL>(&parsed);
        if (ours == nullptr) continue;
        ++accepted;
        EXPECT_EQ(authorityForCurl(url + "/x"), ours->origin().host + ':' + ours->origin().port)
            << url;
    }
    EXPECT_GT(accepted, 1000);
}

}  // namespace
