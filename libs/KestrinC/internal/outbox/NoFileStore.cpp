#include <KestrinC/internal/border/Problem.hpp>
#include <KestrinC/internal/outbox/FileStore.hpp>

namespace KestrinC::internal {

std::shared_ptr<KestrinHousehold::OutboxStore> fileStore(const std::string& /*file*/) {
    throw Refused(KESTRIN_NOT_AVAILABLE,
                  "options.file is there, but this library was built without SQLite");
}

}  // namespace KestrinC::internal
