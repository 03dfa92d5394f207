#include <rxcpp/operators/rx-map.hpp>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/http/URL.hpp>
#include <HalvardSling/rx/JSON.hpp>

namespace HalvardSling {

namespace {

JSONDictionary decoded(const Response& response) {
    auto parsed = JSONDictionary::parse(response.sharedBody());
    if (auto* const dictionary = std::get_if<JSONDictionary>(&parsed))
        return std::move(*dictionary);
    const auto origin = originOf(response.effectiveURL());
    throw SlingError(SlingErrorKind::malformedReply,
                     "the reply of " + (origin ? origin->text() : "the service") +
                         " is not a JSON object: " + std::get<JSONFailure>(parsed).text());
}

}  // namespace

Observable<JSONDictionary> json(const Observable<Response>& responses) {
    return responses | rxcpp::operators::map(&decoded);
}

}  // namespace HalvardSling
