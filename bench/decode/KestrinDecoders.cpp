#include <exception>
#include <optional>

#include <rxcpp/rx-lite.hpp>

#include <HalvardSling/rx/JSON.hpp>

#include "decode/Decoders.hpp"

namespace Bench {

using KestrinProfile::UserProfile;

/// The way of a read operation: the sequence of replies, the dictionary, the decoder.
UserProfile decodeWithKestrin(const HalvardSling::Response& reply) {
    std::optional<UserProfile> list;
    std::exception_ptr failure;
    HalvardSling::json(rxcpp::observable<>::just(reply))
        .subscribe(
            [&](const HalvardSling::JSONDictionary& document) {
                list = UserProfile::fromJSON(document);
            },
            [&](const std::exception_ptr& error) { failure = error; });
    if (failure) std::rethrow_exception(failure);
    return std::move(list.value());
}

/// The limit: the record is there already, and is copied.
UserProfile copyRecord(const HalvardSling::Response& reply) {
    static const char* of = nullptr;
    static UserProfile record = emptyRecord();
    if (of != reply.body().data()) {
        record = decodeWithKestrin(reply);
        of = reply.body().data();
    }
    return record;
}

}  // namespace Bench
