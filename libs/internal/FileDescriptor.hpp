#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace KestrinInternal {

/// Makes a system call, again for as long as a signal interrupts it.
/// @return its result; negative, with `errno` set, if it failed
template <class Call>
auto uninterrupted(const Call& call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/// Owns a file descriptor of POSIX, or none (-1).
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) noexcept : number_(number) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~FileDescriptor() {
        if (isOpen()) ::close(number_);
    }

    [[nodiscard]] bool isOpen() const noexcept { return number_ >= 0; }
    [[nodiscard]] int number() const noexcept { return number_; }

    /// Takes the file's advisory lock unless somebody else has it; it goes with the file.
    /// @return false, with `errno` set, if it was not to be had
    [[nodiscard]] bool lock() const noexcept {
        return uninterrupted([&] { return ::flock(number_, LOCK_EX | LOCK_NB); }) == 0;
    }

    /// Reads everything; absent, with `errno` set, if that fails or there is more than the limit.
    [[nodiscard]] std::optional<std::string> readAll(std::size_t limit) const {
        std::string text;
        std::array<char, 8192> piece{};
        while (text.size() <= limit) {
            const ssize_t count =
                uninterrupted([&] { return ::read(number_, piece.data(), piece.size()); });
            if (count == 0) return text;
            if (count < 0) return std::nullopt;
            text.append(piece.data(), static_cast<std::size_t>(count));
        }
        errno = EFBIG;
        return std::nullopt;
    }

    /// Writes everything.
    /// @return false, with `errno` set, if that fails
    [[nodiscard]] bool writeAll(std::string_view text) const noexcept {
        while (!text.empty()) {
            const ssize_t count =
                uninterrupted([&] { return ::write(number_, text.data(), text.size()); });
            if (count < 0) return false;
            text.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

  private:
    int number_ = -1;
};

}  // namespace KestrinInternal
