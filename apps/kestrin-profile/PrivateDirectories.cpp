#include "PrivateDirectories.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

#include <internal/FileDescriptor.hpp>

namespace KestrinProfileCLI {

namespace fs = std::filesystem;
using KestrinInternal::FileDescriptor;

namespace {

constexpr mode_t ownerOnly = S_IRWXU;

/// @return whether it is there now; if not, `errno` is set
bool make(int parent, const fs::path& name) {
    return mkdirat(parent, name.c_str(), ownerOnly) == 0 || errno == EEXIST;
}

/// Whether something is a symbolic link.
bool isLink(int parent, const fs::path& name) {
    struct stat status{};
    return fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISLNK(status.st_mode);
}

/// Takes a directory from everybody but this user.
/// @return why it cannot be used; absent if it can
std::optional<std::string> claim(const FileDescriptor& directory) {
    struct stat status{};
    if (fstat(directory.number(), &status) != 0) return std::strerror(errno);
    if (status.st_uid != geteuid()) return "it belongs to another user";
    const bool isPrivate = (status.st_mode & ~static_cast<mode_t>(S_IFMT)) == ownerOnly;
    if (isPrivate || fchmod(directory.number(), ownerOnly) == 0) return std::nullopt;
    return std::strerror(errno);
}

}  // namespace

std::optional<std::string> makePrivateDirectories(const fs::path& base, const fs::path& below) {
    const auto refusal = [](const fs::path& directory, const std::string& reason) {
        return fmt::format("the directory {} cannot be used: {}", directory.string(), reason);
    };
    fs::path made;
    for (const auto& name : base) {
        made /= name;
        // Others than the last one may forbid to be made, as an automounter's do.
        static_cast<void>(make(AT_FDCWD, made));
    }
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    FileDescriptor parent(open(base.c_str(), flags));
    if (!parent.isOpen()) return refusal(base, std::strerror(errno));
    for (const auto& name : below) {
        made /= name;
        FileDescriptor directory;
        if (make(parent.number(), name))
            directory = FileDescriptor(openat(parent.number(), name.c_str(), flags | O_NOFOLLOW));
        const int error = errno;
        if (!directory.isOpen() && isLink(parent.number(), name))
            return refusal(made, "it is a symbolic link, which is not followed");
        if (!directory.isOpen()) return refusal(made, std::strerror(error));
        if (const auto reason = claim(directory)) return refusal(made, *reason);
        parent = std::move(directory);
    }
    return std::nullopt;
}

}  // namespace KestrinProfileCLI
