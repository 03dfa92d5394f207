// The texts of a request: percent-encoding beside libcurl's, filling a URL template beside the
// ways in which it is usually done.

#include <array>
#include <memory>
#include <regex>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <KestrinConfigManager/URLTemplate.hpp>
#include <KestrinProfile/params/internal/PercentEncoding.hpp>

namespace {

using KestrinConfigManager::TextMap;

// 20 bytes, of which three are to be encoded.
constexpr std::string_view freeText = "the night & the moon";

void encodeKestrin(benchmark::State& state) {
    for (auto _ : state) {
        std::string_view text = freeText;
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(KestrinProfile::internal::percentEncoded(text));
    }
    state.SetItemsProcessed(state.iterations());
}

void encodeCurl(benchmark::State& state) {
    CURL* const easy = curl_easy_init();
    for (auto _ : state) {
        std::string_view text = freeText;
        benchmark::DoNotOptimize(text);
        char* const encoded = curl_easy_escape(easy, text.data(), static_cast<int>(text.size()));
        benchmark::DoNotOptimize(encoded);
        curl_free(encoded);
    }
    curl_easy_cleanup(easy);
    state.SetItemsProcessed(state.iterations());
}

// Eight placeholders, as in a template that uses them all.
const std::string templateText =
    "https://%HOST%.example.com/v1/%BRANDNAME%/history?profile=%UXID%&video=%VIDEO%&show=%SHOWID%"
    "&search=%SEARCH%&name=%USERNAME%&target=%TARGET%&v=1";

const TextMap values = {{"%HOST%", "api"},
                        {"%BRANDNAME%", "brand-1"},
                        {"%UXID%", "5f0c1a77-9d3e-4c5b"},
                        {"%VIDEO%", "video-0123456789"},
                        {"%SHOWID%", "show-42"},
                        {"%SEARCH%", "the%20night"},
                        {"%USERNAME%", "Ada%20L"},
                        {"%TARGET%", "77aa-0001"}};

std::string byTemplate() {
    static const KestrinConfigManager::URLTemplate compiled(templateText);
    return compiled.filled(values);
}

/// Looks for each token in the whole text, again and again.
std::string byFindAndReplace() {
    std::string text = templateText;
    for (const auto& [token, value] : values)
        for (std::size_t at = text.find(token); at != std::string::npos;
             at = text.find(token, at + value.size()))
            text.replace(at, token.size(), value);
    return text;
}

std::string byRegex() {
    static const std::regex token("%[A-Z]{3,}%");
    std::string text;
    auto rest = templateText.cbegin();
    for (std::sregex_iterator match(templateText.begin(), templateText.end(), token), end;
         match != end; ++match) {
        text.append(rest, (*match)[0].first);
        text += values.at(match->str());
        rest = (*match)[0].second;
    }
    return text.append(rest, templateText.cend());
}

void fill(benchmark::State& state, std::string (*way)()) {
    if (way() != byFindAndReplace()) return state.SkipWithError("not the same text");
    for (auto _ : state)
        benchmark::DoNotOptimize(way());
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(encodeKestrin)->Name("percent_encoding/KestrinProfile/20");
BENCHMARK(encodeCurl)->Name("percent_encoding/curl_easy_escape/20");
BENCHMARK_CAPTURE(fill, byTemplate, &byTemplate)->Name("template/KestrinProfile/8");
BENCHMARK_CAPTURE(fill, byFindAndReplace, &byFindAndReplace)->Name("template/find and replace/8");
BENCHMARK_CAPTURE(fill, byRegex, &byRegex)->Name("template/std::regex/8");
BENCHMARK_MAIN();
