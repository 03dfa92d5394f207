#pragma once

#include <HalvardSling/Export.hpp>
#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <HalvardSling/rx/Observable.hpp>

namespace HalvardSling {

/// Decodes the body of each response into a JSON dictionary.
///
/// Fails with `SlingErrorKind::malformedReply` where the body is not JSON (RFC 8259) or its top is
/// not an object, and with `SlingErrorKind::tooLarge` where so many values are in it that the body
/// and all that is made of it, the records included, would take more memory than the request's
/// `RequestPolicy::maxBodyBytes` allows (of a reply without a request: its default). The error's
/// text says at which line and column, and never quotes the body. Errors of the source pass through
/// unchanged. The dictionary keeps the response's body and reads from it without a copy.
[[nodiscard]] HALVARD_SLING_EXPORT Observable<JSONDictionary> json(
    const Observable<Response>& responses);

}  // namespace HalvardSling
