#include "ServiceProcess.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <fmt/format.h>

#include <internal/FileDescriptor.hpp>

namespace HouseholdEvening {

using KestrinInternal::FileDescriptor;
using KestrinInternal::uninterrupted;

namespace {

/// The words as the system wants them; they point into the texts.
std::vector<char*> pointersTo(std::vector<std::string>& words) {
    std::vector<char*> all;
    all.reserve(words.size() + 1);
    for (auto& word : words)
        all.push_back(word.data());
    all.push_back(nullptr);
    return all;
}

/// Becomes the program, which ends with this process. Between fork and exec.
[[noreturn]] void become(const std::vector<char*>& words, int output) {
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGTERM);
#endif
    if (dup2(output, STDOUT_FILENO) != -1) execvp(words.front(), words.data());
    constexpr int notFound = 127;
    _exit(notFound);
}

/// What comes up to the end of a line, or of the input.
std::string lineFrom(const FileDescriptor& input) {
    std::string line;
    for (char next = 0;;) {
        const auto count = uninterrupted([&] { return read(input.number(), &next, 1); });
        if (count != 1 || next == '\n') return line;
        line += next;
    }
}

}  // namespace

ServiceProcess::ServiceProcess(std::vector<std::string> command,
                               const std::string& configurationFile)
    : command_(std::move(command)) {
    start({"--write-config", configurationFile});
}

ServiceProcess::~ServiceProcess() {
    end(SIGTERM);
}

void ServiceProcess::kill() {
    end(SIGKILL);
}

void ServiceProcess::restart() {
    start({});
}

void ServiceProcess::stop() {
    const int status = end(SIGTERM);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("the service did not end in good order");
}

void ServiceProcess::start(const std::vector<std::string>& more) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::runtime_error(std::strerror(errno));
    const FileDescriptor input(ends[0]);
    FileDescriptor output(ends[1]);
    for (const int each : ends)
        fcntl(each, F_SETFD, FD_CLOEXEC);

    auto words = command_;
    words.insert(words.end(), {"--port", port_});
    words.insert(words.end(), more.begin(), more.end());
    const auto pointers = pointersTo(words);
    process_ = fork();
    if (process_ == 0) become(pointers, output.number());
    if (process_ < 0) throw std::runtime_error(std::strerror(errno));
    output = FileDescriptor();

    const std::string ready = lineFrom(input);
    if (ready.empty()) {
        end(SIGKILL);
        throw std::runtime_error(fmt::format("{} did not start", command_.front()));
    }
    fmt::print("{}\n", ready);
    port_ = ready.substr(ready.rfind(':') + 1);
}

int ServiceProcess::end(int signal) noexcept {
    int status = 0;
    if (process_ <= 0) return status;
    ::kill(process_, signal);
    const pid_t ended = std::exchange(process_, -1);
    uninterrupted([&] { return waitpid(ended, &status, 0); });
    return status;
}

}  // namespace HouseholdEvening
