#include <HalvardSling/Transport.hpp>

namespace HalvardSling {

Transport::~Transport() = default;

}  // namespace HalvardSling
