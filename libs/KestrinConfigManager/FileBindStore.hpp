#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

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
///
/// A process that is forked after the first save does not have the thread: there a save does
/// nothing, `flush` says so, and loading gives what the file holds.
class KESTRIN_CONFIG_MANAGER_EXPORT FileBindStore final : public BindStore {
  public:
    /// @param file  where; its directory must exist
    explicit FileBindStore(std::filesystem::path file);

    /// Writes what is still waiting, then ends.
    ~FileBindStore() override;

    [[nodiscard]] Loaded load() override;
    void save(HeldBinds held) override;

    /// Waits until everything saved so far is on the disk.
    /// @return why the last write failed, or that this process was forked after the first save and
    /// writes nothing; absent if all is there
    /// @throws std::bad_alloc if there is no memory for the reason
    std::optional<std::string> flush();

  private:
    class Core;
    std::unique_ptr<Core> core_;
};

}  // namespace KestrinConfigManager
