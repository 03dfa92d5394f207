#pragma once

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <signal.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include <KestrinProfileTesting/AdminClient.hpp>

namespace KestrinProfileTesting {

/// How a development service is started.
struct ServiceOptions {
    /// The program; empty: what $KESTRIN_PROFILE_SERVER names, else kestrin-profile-server, looked
    /// for in $PATH.
    std::filesystem::path program{};
    /// More arguments, e.g. {"--strict"}.
    std::vector<std::string> arguments{};
};

/// A development service of a test's own: a process with the demo's data, which nobody keeps, on a
/// free port of this computer. It ends with this object. The whole test program may share one, with
/// a namespace for each test (`AdminClient::addNamespace`). For Linux.
///
///     DevelopmentService service;
///     manager.load(service.configuration());
///     service.admin().add(Fault::status(503).times(2));
class DevelopmentService {
  public:
    /// Starts it, and waits until it accepts requests, or has ended.
    /// @throws std::runtime_error if it has ended; what it says is on standard error
    /// @throws std::system_error if it cannot be started
    explicit DevelopmentService(const ServiceOptions& options = {}) : process_(start(options)) {
        try {
            const std::string address = awaitAddress();
            if (address.empty())
                throw std::runtime_error(
                    "the development service has not started: is $KESTRIN_PROFILE_SERVER or "
                    "kestrin-profile-server in $PATH the program?");
            admin_ = std::make_unique<AdminClient>(address);
        } catch (...) {
            stop();
            throw;
        }
    }
    DevelopmentService(const DevelopmentService&) = delete;
    DevelopmentService(DevelopmentService&&) = delete;
    DevelopmentService& operator=(const DevelopmentService&) = delete;
    DevelopmentService& operator=(DevelopmentService&&) = delete;
    ~DevelopmentService() { stop(); }

    /// Its admin interface.
    [[nodiscard]] const AdminClient& admin() const noexcept { return *admin_; }

    /// The file with the configuration that leads clients to it.
    [[nodiscard]] std::filesystem::path configuration() const {
        return folder_.path / "config.json";
    }

    /// Its number, e.g. to stop it with SIGSTOP.
    [[nodiscard]] pid_t process() const noexcept { return process_; }

  private:
    struct Folder {
        Folder() {
            std::string text = (std::filesystem::temp_directory_path() / "service-XXXXXX").string();
            if (::mkdtemp(text.data()) == nullptr) fail("a folder for the service's configuration");
            path = text;
        }
        Folder(const Folder&) = delete;
        Folder(Folder&&) = delete;
        Folder& operator=(const Folder&) = delete;
        Folder& operator=(Folder&&) = delete;
        ~Folder() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
        std::filesystem::path path;
    };

    [[noreturn]] static void fail(const char* what, int error = errno) {
        throw std::system_error(error, std::generic_category(), what);
    }

    static std::string programFor(const ServiceOptions& options) {
        if (!options.program.empty()) return options.program.string();
        const char* const named = std::getenv("KESTRIN_PROFILE_SERVER");
        return named != nullptr && *named != '\0' ? named : "kestrin-profile-server";
    }

    pid_t start(const ServiceOptions& options) {
        std::vector<std::string> words{
            programFor(options), "--demo", "--admin", "--quiet", "--port", "0", "--write-config"};
        words.push_back(configuration().string());
        words.insert(words.end(), options.arguments.begin(), options.arguments.end());
        std::vector<char*> pointers;
        pointers.reserve(words.size() + 1);
        for (auto& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);

        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) fail("a pipe from the service");
        output_ = ends[0];
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        pid_t process = -1;
        const int error =
            ::posix_spawnp(&process, pointers.front(), &actions, nullptr, pointers.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        if (error != 0) {
            ::close(output_);
            fail(words.front().c_str(), error);
        }
        return process;
    }

    /// The address in the line that says that it is ready; empty if it ends without one.
    [[nodiscard]] std::string awaitAddress() const {
        constexpr std::string_view mark = " ready on ";
        std::string line;
        for (char next = 0;;) {
            const ssize_t count = ::read(output_, &next, 1);
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return {};
            if (next != '\n') {
                line += next;
                continue;
            }
            const auto at = line.find(mark);
            if (at != std::string::npos) return line.substr(at + mark.size());
            line.clear();
        }
    }

    void stop() noexcept {
        ::kill(process_, SIGTERM);
        ::kill(process_, SIGCONT);  // a test may have stopped it
        while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
        }
        ::close(output_);
    }

    Folder folder_;
    int output_ = -1;
    pid_t process_;
    std::unique_ptr<AdminClient> admin_;
};

}  // namespace KestrinProfileTesting
