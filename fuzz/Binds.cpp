// The file of binds: loading whatever stands in it, and saving what was loaded.

#include <filesystem>
#include <fstream>
#include <set>

#include <KestrinConfigManager/FileBindStore.hpp>

#include "fuzz/Expect.hpp"
#include "fuzz/Folder.hpp"

namespace {

using Fuzz::expect;
using KestrinConfigManager::BindStore;
using KestrinConfigManager::FileBindStore;

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
    static const Fuzz::Folder folder("binds");
    const auto file = folder / "binds.json";
    std::ofstream(file, std::ios::binary | std::ios::trunc) << Fuzz::textOf(data, size);
    std::filesystem::permissions(
        file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    const auto loaded = FileBindStore(file).load();
    check(loaded);
    // A thread and a rename each time: only for what is worth it.
    if (!loaded.warning) save(file, loaded);
    return 0;
}
