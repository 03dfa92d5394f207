// What is left of the binds when the power is cut. A program of its own, because it stands between
// the store and the system's calls.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include <KestrinConfigManager/FileBindStore.hpp>

#include "Support.hpp"
#include "support/CallJudge.hpp"
#include "support/Program.hpp"

namespace {

using KestrinConfigManager::FileBindStore;
using testing::ElementsAre;
using TestSupport::CallTarget;
using TestSupport::contentOf;
using TestSupport::held;
using TestSupport::SystemCall;

/// A disk with a cache, and one file that is replaced. Of a file it has what was synced before it
/// took its name; the name may last at once, and does from when the folder was synced.
class Disk final : public TestSupport::CallJudge {
  public:
    using Content = std::optional<std::string>;

    [[nodiscard]] int errorOf(SystemCall call, const CallTarget& /*target*/) override {
        if (call != SystemCall::rename) return 0;
        const std::scoped_lock lock(mutex_);
        named_ = std::exchange(synced_, Content(""));
        everFound_.insert(*named_);
        return 0;
    }

    [[nodiscard]] std::size_t taken(const CallTarget& /*target*/, std::size_t size) override {
        return size;
    }

    [[nodiscard]] bool hasSynced(const CallTarget& target) override {
        const std::filesystem::path path = target.path();
        const bool isFolder = std::filesystem::is_directory(path);
        Content content = isFolder ? Content() : Content(contentOf(path));
        const std::scoped_lock lock(mutex_);
        if (isFolder && keepsFolders_) lasting_ = named_;
        if (!isFolder && keepsFiles_) synced_ = std::move(content);
        return true;
    }

    /// An empty disk.
    void startAnew(bool keepsFiles, bool keepsFolders) {
        const std::scoped_lock lock(mutex_);
        keepsFiles_ = keepsFiles;
        keepsFolders_ = keepsFolders;
        synced_ = "";
        named_ = lasting_ = std::nullopt;
        everFound_.clear();
    }

    /// What may be found in the file if the power is cut now; absent: no file.
    [[nodiscard]] std::set<Content> found() const {
        const std::scoped_lock lock(mutex_);
        return {named_, lasting_};
    }

    /// What could ever have been found there.
    [[nodiscard]] std::set<std::string> everFound() const {
        const std::scoped_lock lock(mutex_);
        return everFound_;
    }

  private:
    mutable std::mutex mutex_;
    bool keepsFiles_ = true;
    bool keepsFolders_ = true;
    Content synced_ = "";
    Content named_;
    Content lasting_;
    std::set<std::string> everFound_;
};

/// The one of this process, as long as it lives.
Disk& disk() {
    static Disk made;
    static const bool isSet = (TestSupport::setCallJudge(&made), true);
    static_cast<void>(isSet);
    return made;
}

class BindStorePowerCut : public testing::Test {
  protected:
    /// Saves a bind.
    void save(std::uint64_t revision) {
        FileBindStore store(file);
        store.save(held(revision, "p", "s3cret-" + std::to_string(revision)));
        ASSERT_EQ(store.flush(), std::nullopt);
    }

    TestSupport::TemporaryDirectory directory;
    std::filesystem::path file = directory / "binds.json";
};

TEST_F(BindStorePowerCut, LeavesTheBindsThatWereFlushed) {
    disk().startAnew(true, true);
    for (std::uint64_t revision = 1; revision <= 20; ++revision) {
        save(revision);
        EXPECT_THAT(disk().found(), ElementsAre(contentOf(file))) << revision;
    }
    EXPECT_EQ(disk().everFound().size(), 20U);
}

TEST_F(BindStorePowerCut, LeavesAWholeFileWhenever) {
    disk().startAnew(true, true);
    for (std::uint64_t revision = 1; revision <= 20; ++revision)
        save(revision);
    const std::filesystem::path after = directory / "after.json";
    for (const std::string& content : disk().everFound()) {
        TestSupport::write(after, content);
        std::filesystem::permissions(after, std::filesystem::perms(0600));
        const auto loaded = FileBindStore(after).load();
        EXPECT_EQ(loaded.warning, std::nullopt);
        EXPECT_EQ(loaded.held.binds.size(), 1U);
    }
}

// These show that the tests above see a loss.
TEST_F(BindStorePowerCut, LeavesNothingIfTheDiskForgetsFiles) {
    disk().startAnew(false, true);
    save(1);
    EXPECT_THAT(disk().found(), ElementsAre(Disk::Content("")));
}

TEST_F(BindStorePowerCut, MayLeaveNoFileIfTheDiskForgetsNames) {
    disk().startAnew(true, false);
    save(1);
    EXPECT_THAT(disk().found(), ElementsAre(std::nullopt, contentOf(file)));
}

}  // namespace
