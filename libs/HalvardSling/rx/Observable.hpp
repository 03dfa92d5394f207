#pragma once

#include <rxcpp/rx-lite.hpp>

namespace HalvardSling {

/// The type of every asynchronous result: a ReactiveX sequence (https://reactivex.io).
///
/// Every observable of these libraries is cold: nothing happens before `subscribe`, and each
/// subscription does the work anew. It emits one value and completes, or fails with one error.
template <class T>
using Observable = rxcpp::observable<T>;

}  // namespace HalvardSling
