#include "Files.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include <internal/FileDescriptor.hpp>

#include "ExitCode.hpp"

namespace KestrinProfileCLI {

using KestrinInternal::FileDescriptor;

namespace {

[[noreturn]] void failToRead(const std::string& file, const char* advice) {
    throw CommandError(
        {ExitCode::usage, fmt::format("cannot read {}: {}", file, std::strerror(errno)), advice});
}

constexpr std::size_t largestFile = std::size_t{64} << 20;

}  // namespace

std::string contentOf(const std::string& file, const char* advice, Interruption& interruption) {
    FileDescriptor opened;
    if (file != "-") {
        // Without blocking: a named pipe is there before anybody writes to it.
        opened = FileDescriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        if (!opened.isOpen()) failToRead(file, advice);
    }
    const int descriptor = opened.isOpen() ? opened.number() : STDIN_FILENO;
    std::string all;
    std::array<char, 65536> piece{};
    for (;;) {
        interruption.waitUntilReadable(descriptor);
        const ssize_t count = read(descriptor, piece.data(), piece.size());
        if (count == 0) return all;
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;  // somebody was quicker
        if (count < 0) failToRead(file, advice);
        all.append(piece.data(), static_cast<std::size_t>(count));
        if (all.size() > largestFile) {
            errno = EFBIG;
            failToRead(file, advice);
        }
    }
}

}  // namespace KestrinProfileCLI
