#pragma once

#include <memory>
#include <utility>

#include <HalvardSling/curl/CurlTransport.hpp>

#include "Transfers.hpp"

namespace TestSupport {

inline std::shared_ptr<HalvardSling::CurlTransport> curlTransport(
    HalvardSling::CurlTransport::Options options = {}) {
    return std::make_shared<HalvardSling::CurlTransport>(std::move(options));
}

}  // namespace TestSupport
