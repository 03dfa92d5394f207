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

/// A named pipe that the test writes to and a program reads from. It has no end before the test's.
class Pipe {
  public:
    explicit Pipe(std::filesystem::path file);
    Pipe(const Pipe&) = delete;
    Pipe(Pipe&&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    Pipe& operator=(Pipe&&) = delete;
    ~Pipe();

    [[nodiscard]] const std::filesystem::path& file() const noexcept { return file_; }

    void write(std::string_view text) const;

    /// Waits until everything written was read; false if it is not.
    [[nodiscard]] bool isRead() const;

    /// Whether a writer has to wait until something is read.
    [[nodiscard]] bool isFull() const;

  private:
    std::filesystem::path file_;
    int descriptor_;
};

/// Environment variables to set for a program, beside those of the test.
using Environment = std::map<std::string, std::string>;

/// A program that runs as a process of its own. It is killed if it still runs at the end.
class Program {
  public:
    /// Starts it.
    /// @param words  the program (a path, or a name to look for in PATH) and its arguments
    /// @param input  the file that is its standard input
    Program(std::vector<std::string> words, const Environment& environment = {},
            const std::filesystem::path& input = "/dev/null");
    Program(const Program&) = delete;
    Program(Program&&) = delete;
    Program& operator=(const Program&) = delete;
    Program& operator=(Program&&) = delete;
    ~Program();

    /// Waits for the first line of its standard output; empty if it ends without one.
    [[nodiscard]] std::string firstLine() const;

    /// Waits until its standard output holds a text, or it ends.
    /// @return what it has written
    [[nodiscard]] std::string awaitOutput(std::string_view text) const;

    /// The same for its standard error output.
    [[nodiscard]] std::string awaitErrors(std::string_view text) const;

    /// Its number.
    [[nodiscard]] pid_t process() const noexcept { return process_; }

    void signal(int number) const;

    /// Waits for its end.
    /// @return its exit code; minus the signal's number if a signal ended it
    int wait();

    /// What it has written so far.
    [[nodiscard]] std::string output() const { return contentOf(directory_ / "output"); }
    [[nodiscard]] std::string errors() const { return contentOf(directory_ / "errors"); }

  private:
    [[nodiscard]] std::string await(std::string_view text, std::string_view stream) const;
    [[nodiscard]] bool hasEnded() const;

    TemporaryDirectory directory_;
    pid_t process_ = -1;
    std::optional<int> result_;
};

}  // namespace TestSupport
