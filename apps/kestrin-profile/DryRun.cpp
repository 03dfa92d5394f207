#include "DryRun.hpp"

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinProfile/service/Error.hpp>

#include "CurlCommand.hpp"

namespace KestrinProfileCLI {

using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;

HalvardSling::TransferID DryRunTransport::send(HalvardSling::CheckedRequest request,
                                               HalvardSling::TransportCompletion completion) {
    show_(curlCommand(*request));
    completion(SlingError(SlingErrorKind::cancelled, "shown, not sent"));
    return ++last_;
}

bool wasOnlyShown(const std::exception_ptr& error) {
    return KestrinProfile::visitError(
        error, [](const SlingError& known) { return known.kind() == SlingErrorKind::cancelled; },
        [](const std::exception&) { return false; });
}

}  // namespace KestrinProfileCLI
