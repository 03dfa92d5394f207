#include <rxcpp/operators/rx-map.hpp>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/rx/JSON.hpp>
#include <HalvardSling/rx/internal/ResponseOrigin.hpp>

namespace HalvardSling {

namespace {

JSONDictionary decoded(const Response& response) {
    auto parsed = JSONDictionary::parse(response.sharedBody());
    if (auto* const dictionary = std::get_if<JSONDictionary>(&parsed))
        return std::move(*dictionary);
    const SlingError error(SlingErrorKind::malformedReply,
                           "the reply of " + internal::originText(response) +
                               " is not a JSON object: " + std::get<JSONFailure>(parsed).text());
    const auto context = response.context();
    throw context ? error.with(*context) : error;
}

}  // namespace

Observable<JSONDictionary> json(const Observable<Response>& responses) {
    return responses | rxcpp::operators::map(&decoded);
}

}  // namespace HalvardSling
