#include <filesystem>

#include <KestrinC/internal/outbox/FileStore.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>

namespace KestrinC::internal {

std::shared_ptr<KestrinHousehold::OutboxStore> fileStore(const std::string& file) {
    return std::make_shared<KestrinHousehold::SQLiteOutboxStore>(
        std::filesystem::path(std::u8string(file.begin(), file.end())));
}

}  // namespace KestrinC::internal
