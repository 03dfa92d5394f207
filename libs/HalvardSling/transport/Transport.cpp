#include <HalvardSling/transport/Transport.hpp>

namespace HalvardSling {

Transport::~Transport() = default;

}  // namespace HalvardSling
