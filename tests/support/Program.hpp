#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace TestSupport {

/// A new empty directory that goes with everything in it.
class TemporaryDirectory {
  public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory(TemporaryDirectory&&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory&&) = delete;
    ~TemporaryDirectory();

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }
    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
        return path_ / name;
    }
    /// The names of all that is in it.
    [[nodiscard]] std::vector<std::string> names() const;

  private:
    std::filesystem::path path_;
};

[[nodiscard]] std::string contentOf(const std::filesystem::path& file);
void write(const std::filesystem::path& file, std::string_view content);

/// Environment variables to set for a program, beside those of the test.
using Environment = std::map<std::string, std::string>;

/// A program that runs as a process of its own. It is killed where it still runs at the end.
class Program {
  public:
    /// Starts it.
    /// @param words  the program (a path, or a name to look for in PATH) and its arguments
    Program(std::vector<std::string> words, const Environment& environment = {});
    Program(const Program&) = delete;
    Program(Program&&) = delete;
    Program& operator=(const Program&) = delete;
    Program& operator=(Program&&) = delete;
    ~Program();

    /// Waits up to 20 seconds for the first line of its standard output; empty where none came.
    [[nodiscard]] std::string firstLine() const;

    void signal(int number) const;

    /// Waits for its end.
    /// @return its exit code; minus the signal's number where a signal ended it
    int wait();

    /// What it has written so far.
    [[nodiscard]] std::string output() const { return contentOf(directory_ / "output"); }
    [[nodiscard]] std::string errors() const { return contentOf(directory_ / "errors"); }

  private:
    TemporaryDirectory directory_;
    pid_t process_ = -1;
    std::optional<int> result_;
};

}  // namespace TestSupport
