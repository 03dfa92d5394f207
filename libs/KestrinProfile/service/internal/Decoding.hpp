#pragma once

#include <utility>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

namespace KestrinProfile::internal {

/// The record of a whole reply.
/// @throws ProfileError of this case if the record's reader finds none
template <class Record, ProfileError::Case Failure>
Record decoded(const HalvardSling::JSONDictionary& reply) {
    auto record = Record::fromJSON(reply);
    if (!record) throw ProfileError(Failure);
    return std::move(*record);
}

}  // namespace KestrinProfile::internal
