#pragma once

#include <HalvardSling/json/JSONDictionary.hpp>

namespace HalvardSling {

struct Response {
    JSONDictionary content;
};

}  // namespace HalvardSling
