#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace Fuzz {

/// A folder of this process, in memory if the system has such a place; it goes with the process.
class Folder {
  public:
    explicit Folder(std::string_view purpose) {
        const std::filesystem::path memory = "/dev/shm";
        path_ =
            (std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path()) /
            ("fuzz-" + std::string(purpose) + "-" + std::to_string(::getpid()));
        std::filesystem::create_directory(path_);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
        return path_ / name;
    }

  private:
    std::filesystem::path path_;
};

}  // namespace Fuzz
