#pragma once

#include <rxcpp/operators/rx-map.hpp>

#include <HalvardSling/Observable.hpp>
#include <HalvardSling/Response.hpp>

namespace HalvardSling {

inline Observable<JSONDictionary> json(const Observable<Response>& responses) {
    return responses | rxcpp::operators::map([](const Response& reply) { return reply.content; });
}

}  // namespace HalvardSling
