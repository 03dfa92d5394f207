#pragma once

#include <optional>

#include <KestrinProfile/service/Profile.hpp>

#include "support/PrivateMember.hpp"

namespace TestSupport {

/// What all operations of `Profile` go through, and no client can call.
struct CreateProfileRequest {
    using Member = HalvardSling::Observable<HalvardSling::Response> (KestrinProfile::Profile::*)(
        const KestrinConfigManager::APIParams&, std::optional<KestrinProfile::ProfileOperation>,
        bool) const;
    friend Member opened(CreateProfileRequest);
};
template struct Opens<CreateProfileRequest, &KestrinProfile::Profile::createProfileRequest>;

}  // namespace TestSupport
