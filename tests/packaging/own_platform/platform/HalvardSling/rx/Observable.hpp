#pragma once

#include <rxcpp/rx-lite.hpp>

namespace HalvardSling {

template <class T>
using Observable = rxcpp::observable<T>;

}  // namespace HalvardSling
