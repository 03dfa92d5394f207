#include <KestrinHousehold/outbox/OutboxStore.hpp>

namespace KestrinHousehold {

OutboxStore::~OutboxStore() = default;

}  // namespace KestrinHousehold
