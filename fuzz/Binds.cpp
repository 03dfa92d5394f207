// The file of binds: loading whatever stands in it, and saving what was loaded.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <unistd.h>

#include <KestrinConfigManager/FileBindStore.hpp>

#include "fuzz/Expect.hpp"

namespace {

using Fuzz::expect;
using KestrinConfigManager::BindStore;
using KestrinConfigManager::FileBindStore;

/// A folder of this process, in memory if the system has such a place; it goes with the process.
class Folder {
  public:
    Folder() {
        const std::filesystem::path memory = "/dev/shm";
        path_ =
            (std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path()) /
            ("fuzz-binds-" + std::to_string(::getpid()));
        std::filesystem::create_directory(path_);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] std::filesystem::path file() const { return path_ / "binds.json"; }

  private:
    std::filesystem::path path_;
};

void check(const BindStore::Loaded& loaded) {
    std::set<std::string> profiles;
    for (const auto& bind : loaded.held.binds)
        expect(profiles.insert(bind.profileID).second, "a profile has one bind");
}

/// What was loaded is loaded again after it was saved.
void save(const std::filesystem::path& file, const BindStore::Loaded& loaded) {
    FileBindStore store(file);
    store.save(loaded.held);
    expect(!store.flush(), "what was loaded can be saved");
    const auto again = store.load();
    expect(!again.warning, "what was saved is sound");
    expect(again.held.binds == loaded.held.binds, "its binds are the same");
    expect(again.held.selectedProfileID == loaded.held.selectedProfileID, "so is who acts");
    expect(again.held.revision == loaded.held.revision, "so is its revision");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Folder folder;
    const auto file = folder.file();
    std::ofstream(file, std::ios::binary | std::ios::trunc) << Fuzz::textOf(data, size);
    std::filesystem::permissions(
        file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    const auto loaded = FileBindStore(file).load();
    check(loaded);
    // A thread and a rename each time: only for what is worth it.
    if (!loaded.warning) save(file, loaded);
    return 0;
}
