#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include <internal/FileDescriptor.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>
#include <kestrin-profile-server/storage/PrivateFile.hpp>

namespace KestrinProfileServer {
namespace {

void writeNewFile(const std::filesystem::path& file, const std::string& content) {
    const KestrinInternal::FileDescriptor descriptor(
        ::open(file.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
    if (!descriptor.isOpen() || !descriptor.writeAll(content) || ::fsync(descriptor.number()) != 0)
        throw std::system_error(errno, std::generic_category());
}

}  // namespace

void replacePrivateFile(const std::filesystem::path& file, const std::string& content) {
    auto temporary = file;
    temporary += "." + hexadecimal(randomBytes(4)) + ".tmp";
    try {
        writeNewFile(temporary, content);
        std::filesystem::rename(temporary, file);
    } catch (const std::system_error&) {
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
        throw;
    }
}

}  // namespace KestrinProfileServer
