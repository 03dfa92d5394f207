#include <KestrinHousehold/outbox/OutboxDelivery.hpp>

namespace KestrinHousehold {

OutboxDelivery::~OutboxDelivery() = default;

}  // namespace KestrinHousehold
