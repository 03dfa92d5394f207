// JSONDictionary::parse and json(), beside another strict parser.

#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include <rxcpp/rx-lite.hpp>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <HalvardSling/rx/JSON.hpp>

#include "fuzz/Expect.hpp"
#include "fuzz/ReferenceJSON.hpp"

namespace {

using Fuzz::expect;
using HalvardSling::JSONDictionary;
using HalvardSling::JSONFailure;
using HalvardSling::JSONLimits;

std::optional<JSONDictionary> parsed(std::string_view text, const JSONLimits& limits = {}) {
    auto result = JSONDictionary::parse(text, limits);
    if (auto* const dictionary = std::get_if<JSONDictionary>(&result))
        return std::move(*dictionary);
    const auto& failure = std::get<JSONFailure>(result);
    expect(failure.offset <= text.size(), "a failure is in the text");
    return std::nullopt;
}

/// What the other parser says of a text that is taken or refused.
void compare(std::string_view text, const std::optional<JSONDictionary>& dictionary) {
    const auto reference = Fuzz::referenceJSON(text);
    if (reference.isUnknown) return;
    const bool isTaken = reference.written && reference.isDictionary &&
                         reference.depth <= static_cast<int>(JSONLimits().maxDepth);
    expect(dictionary.has_value() == isTaken, "both take or refuse the text");
    if (dictionary)
        expect(dictionary->toJSON() == *reference.written, "both read the same from it");
}

void lookUp(const JSONDictionary& dictionary) {
    std::size_t kinds = 0;
    for (const auto key : dictionary.keys()) {
        kinds += dictionary.kind(key) ? 1 : 0;
        const bool isOne[] = {dictionary.text(key).has_value(), dictionary.integer(key).has_value(),
                              dictionary.boolean(key).has_value(),
                              dictionary.dictionary(key).has_value()};
        expect(isOne[0] + isOne[1] + isOne[2] + isOne[3] <= 1, "a value has one kind");
        if (const auto inner = dictionary.dictionary(key)) lookUp(*inner);
        if (const auto list = dictionary.dictionaries(key))
            for (const JSONDictionary& each : *list)
                lookUp(each);
        static_cast<void>(dictionary.texts(key));
    }
    expect(kinds == dictionary.size(), "every key has a kind");
    expect(dictionary.repeatedKeys().size() <= 1'000'000, "repeated keys can be listed");
}

void change(JSONDictionary dictionary) {
    const JSONDictionary original = dictionary;
    dictionary.setText("new", "text");
    dictionary.setDictionary("itself", original);
    expect(dictionary.dictionary("itself") == original, "what was set is there");
    const bool hadThem = original.kind("new") || original.kind("itself");
    dictionary.remove("new");
    dictionary.remove("itself");
    expect(hadThem || dictionary == original, "what was removed is away");
}

/// The limit refuses a text or changes nothing.
void limit(std::string_view text, const std::optional<JSONDictionary>& dictionary) {
    const auto limited = parsed(text, {.maxMemory = text.size() * 8});
    expect(!limited || (dictionary && *limited == *dictionary), "a limit changes no value");
}

void operate(std::string_view text, bool isTaken) {
    const HalvardSling::Response response({.status = 200,
                                           .headers = {},
                                           .body = std::string(text),
                                           .effectiveURL = "https://api.example.com/",
                                           .timings = {}});
    int values = 0;
    int ends = 0;
    HalvardSling::json(rxcpp::observable<>::just(response))
        .subscribe([&](const JSONDictionary&) { ++values; },
                   [&](const std::exception_ptr&) { ++ends; }, [&] { ++ends; });
    expect(values == (isTaken ? 1 : 0) && ends == 1, "one value, or one error");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = Fuzz::textOf(data, size);
    const auto dictionary = parsed(text);
    compare(text, dictionary);
    limit(text, dictionary);
    operate(text, dictionary.has_value());
    if (!dictionary) return 0;
    const std::string written = dictionary->toJSON();
    const auto again = parsed(written);
    expect(again && *again == *dictionary, "what was written reads the same");
    expect(again->toJSON() == written, "and is written the same");
    lookUp(*dictionary);
    change(*dictionary);
    return 0;
}
