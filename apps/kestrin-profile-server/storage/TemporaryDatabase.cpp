#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <kestrin-profile-server/storage/Database.hpp>
#include <kestrin-profile-server/storage/TemporaryDatabase.hpp>

namespace KestrinProfileServer {
namespace {

namespace fs = std::filesystem;
using KestrinInternal::FileDescriptor;

constexpr std::string_view folderPrefix = "kestrin-profile-server.";
constexpr const char* lockName = "in-use";

bool isOwn(const fs::path& folder) {
    struct stat status{};
    return ::lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == ::geteuid();
}

/// Somebody's who is just starting has no lock file yet, and stays.
bool isLeftBehind(const fs::path& folder) {
    if (!folder.filename().string().starts_with(folderPrefix) || !isOwn(folder)) return false;
    const FileDescriptor lock(
        ::open((folder / lockName).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    return lock.isOpen() && lock.lock();
}

void removeLeftBehind(const fs::path& parent) {
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(parent, ignored))
        if (isLeftBehind(entry.path())) fs::remove_all(entry.path(), ignored);
}

fs::path newFolder(const fs::path& parent) {
    std::string pattern = (parent / (std::string(folderPrefix) + "XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::system_error(errno, std::generic_category());
    return pattern;
}

FileDescriptor lockIn(const fs::path& folder) {
    // Locked before it has its name: nobody finds it without its lock.
    const fs::path unnamed = folder / "new";
    FileDescriptor lock(::open(unnamed.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600));
    if (!lock.isOpen() || !lock.lock()) throw std::system_error(errno, std::generic_category());
    fs::rename(unnamed, folder / lockName);
    return lock;
}

}  // namespace

TemporaryDatabase::TemporaryDatabase() {
    try {
        const fs::path parent = fs::temp_directory_path();
        removeLeftBehind(parent);
        folder_ = newFolder(parent);
        lock_ = lockIn(folder_);
    } catch (const std::system_error& failure) {
        throw StartError("there is no place for temporary files: " + failure.code().message() +
                         ". Set TMPDIR to a folder that can be written, or keep the data with"
                         " --data.");
    }
}

TemporaryDatabase::~TemporaryDatabase() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

}  // namespace KestrinProfileServer
