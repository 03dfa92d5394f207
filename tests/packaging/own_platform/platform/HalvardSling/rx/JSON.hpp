#pragma once

#include <rxcpp/operators/rx-map.hpp>

#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/rx/Observable.hpp>

namespace HalvardSling {

inline Observable<JSONDictionary> json(const Observable<Response>& responses) {
    return responses | rxcpp::operators::map([](const Response& reply) { return reply.content; });
}

}  // namespace HalvardSling
