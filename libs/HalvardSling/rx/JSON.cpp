#include <rxcpp/operators/rx-map.hpp>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/rx/JSON.hpp>
#include <HalvardSling/rx/internal/DecodedBody.hpp>
#include <HalvardSling/rx/internal/ResponseOrigin.hpp>

namespace HalvardSling {

namespace {

SlingError errorOf(const Response& response, const JSONFailure& failure) {
    const bool isTooLarge = failure.kind == JSONFailure::Kind::tooLarge;
    const SlingError error(isTooLarge ? SlingErrorKind::tooLarge : SlingErrorKind::malformedReply,
                           "the reply of " + internal::originText(response) +
                               (isTooLarge ? " cannot be decoded: " : " is not a JSON object: ") +
                               failure.text());
    const auto context = response.context();
    return context ? error.with(*context) : error;
}

JSONDictionary decoded(const Response& response) {
    auto parsed = internal::decodedBody(response);
    if (auto* const dictionary = std::get_if<JSONDictionary>(&parsed))
        return std::move(*dictionary);
    throw errorOf(response, std::get<JSONFailure>(parsed));
}

}  // namespace

Observable<JSONDictionary> json(const Observable<Response>& responses) {
    return responses | rxcpp::operators::map(&decoded);
}

}  // namespace HalvardSling
