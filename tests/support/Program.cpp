#include "support/Program.hpp"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "support/Waiting.hpp"

namespace TestSupport {

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() {
    std::string name = (fs::temp_directory_path() / "kestrin-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    path_ = name;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::vector<std::string> TemporaryDirectory::names() const {
    std::vector<std::string> all;
    for (const auto& entry : fs::directory_iterator(path_))
        all.push_back(entry.path().filename().string());
    return all;
}

Pipe::Pipe(fs::path file) : file_(std::move(file)) {
    ::mkfifo(file_.c_str(), 0600);
    // For both, so that opening waits for nobody.
    descriptor_ = ::open(file_.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor_ < 0) throw std::runtime_error("no pipe " + file_.string());
}

Pipe::~Pipe() {
    ::close(descriptor_);
}

void Pipe::write(std::string_view text) const {
    if (::write(descriptor_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("cannot write to " + file_.string());
}

bool Pipe::isRead() const {
    return eventually([&] {
        int unread = 0;
        return ::ioctl(descriptor_, FIONREAD, &unread) == 0 && unread == 0;
    });
}

bool Pipe::isFull() const {
    pollfd writable{descriptor_, POLLOUT, 0};
    return ::poll(&writable, 1, 0) == 0;
}

std::string contentOf(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write(const fs::path& file, std::string_view content) {
    std::ofstream(file, std::ios::binary) << content;
}

namespace {

std::vector<std::string> withVariables(const Environment& environment) {
    std::vector<std::string> all;
    for (char** each = environ; *each != nullptr; ++each) {
        const std::string variable = *each;
        if (!environment.contains(variable.substr(0, variable.find('=')))) all.push_back(variable);
    }
    for (const auto& [name, value] : environment)
        all.push_back(name + "=" + value);
    return all;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> all;
    for (auto& text : texts)
        all.push_back(text.data());
    all.push_back(nullptr);
    return all;
}

}  // namespace

Program::Program(std::vector<std::string> words, const Environment& environment,
                 const fs::path& input) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    const auto redirect = [&](int stream, const fs::path& file, int flags) {
        posix_spawn_file_actions_addopen(&files, stream, file.c_str(), flags, 0600);
    };
    constexpr int written = O_WRONLY | O_CREAT | O_APPEND;
    redirect(STDIN_FILENO, input, O_RDONLY);
    redirect(STDOUT_FILENO, directory_ / "output", written);
    redirect(STDERR_FILENO, directory_ / "errors", written);

    auto variables = withVariables(environment);
    const int failed = posix_spawnp(&process_, words.front().c_str(), &files, nullptr,
                                    pointersTo(words).data(), pointersTo(variables).data());
    posix_spawn_file_actions_destroy(&files);
    if (failed != 0) throw std::runtime_error("cannot start " + words.front());
}

Program::~Program() {
    if (result_) return;
    signal(SIGKILL);
    wait();
}

std::string Program::firstLine() const {
    const std::string all = awaitOutput("\n");
    const auto length = all.find('\n');
    return length == std::string::npos ? "" : all.substr(0, length);
}

std::string Program::awaitOutput(std::string_view text) const {
    return await(text, "output");
}

std::string Program::awaitErrors(std::string_view text) const {
    return await(text, "errors");
}

std::string Program::await(std::string_view text, std::string_view stream) const {
    std::string written;
    static_cast<void>(eventually([&] {
        const bool isLast = hasEnded();
        written = contentOf(directory_ / stream);
        return isLast || written.find(text) != std::string::npos;
    }));
    return written;
}

bool Program::hasEnded() const {
    siginfo_t info{};
    const auto process = static_cast<id_t>(process_);
    return ::waitid(P_PID, process, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
}

void Program::signal(int number) const {
    kill(process_, number);
}

int Program::wait() {
    if (result_) return *result_;
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    result_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return *result_;
}

}  // namespace TestSupport
