#pragma once

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinConfigManager/APIParams.hpp>
#include <KestrinConfigManager/WebService.hpp>

namespace KestrinConfigManager {

/// An application's own request: it answers by itself, with the profile that is asked for.
struct OwnSling {
    HalvardSling::Observable<HalvardSling::Response> responses() const {
        if (profileID == "forbidden")
            return rxcpp::observable<>::error<HalvardSling::Response>(
                HalvardSling::SlingError(403));
        HalvardSling::Response reply;
        reply.content.setText("who", profileID);
        reply.content.setText("secret", "own token");
        return rxcpp::observable<>::just(reply);
    }

    std::string profileID;
};

inline OwnSling build(const APIParams& params, const WebService&) {
    return {params.URLMapping()->at("%UXID%")};
}

}  // namespace KestrinConfigManager
