#include <KestrinHousehold/time/Scheduler.hpp>

namespace KestrinHousehold {

Scheduler::~Scheduler() = default;

}  // namespace KestrinHousehold
