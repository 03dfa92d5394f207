#pragma once

#include <HalvardSling/JSONDictionary.hpp>

namespace HalvardSling {

struct Response {
    JSONDictionary content;
};

}  // namespace HalvardSling
