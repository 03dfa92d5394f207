#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <KestrinConfigManager/BindStore.hpp>
#include <KestrinConfigManager/Export.hpp>

namespace KestrinConfigManager {

/// Keeps binds in a file that only its owner may read.
///
/// Each save writes a new file (created with mode 0600), syncs it and renames it over the old one,
/// on a thread that the store owns and starts with the first save; of several saves that wait, only
/// the newest is written. Whenever the process ends, the file holds one state as a whole, and what
/// an ended process left half-written beside it is removed by the next one that saves. A symbolic
/// link in the file's place is not followed: loading from one gives no bind and a warning, saving
/// replaces the link itself. A file that is damaged, belongs to another user or can be changed by
/// others counts as no bind plus a warning, and stays until the next save. One that others can only
/// read is loaded, with a warning, and loading takes that from them. Where memory is lacking, a
/// save leaves the file as it is, and loading gives no bind; `flush` and the warning say so.
class KESTRIN_CONFIG_MANAGER_EXPORT FileBindStore final : public BindStore {
  public:
    /// @param file  where; its directory must exist
    explicit FileBindStore(std::filesystem::path file);

    /// Writes what is still waiting, then ends.
    ~FileBindStore() override;

    [[nodiscard]] Loaded load() override;
    void save(HeldBinds held) override;

    /// Waits until everything saved so far is on the disk.
    /// @return why the last write failed; absent if it did not
    /// @throws std::bad_alloc if there is no memory for the reason
    std::optional<std::string> flush();

  private:
    [[nodiscard]] Loaded loaded();
    void work();
    [[nodiscard]] std::optional<std::string> write(const HeldBinds& held);

    std::filesystem::path file_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<HeldBinds> waiting_;
    std::uint64_t newest_ = 0;
    bool writing_ = false;
    bool ending_ = false;
    bool removedLeftovers_ = false;  // of the thread that writes
    std::optional<std::string> failure_;
    std::thread thread_;
};

}  // namespace KestrinConfigManager
