// Preloaded into the service, this makes its calls to the system fail as a folder says, and keeps
// what the service has synced of its files: what a computer has after its power was cut.
//
// KESTRIN_FAULTS  the folder; a file there that is called like a fault, with an error number in it,
//                 turns it on: write, sync, accept, thread
//                 short        a write takes half of what it is given
//                 interrupted  every other write is interrupted
//                 forget       a sync is not kept
//                 durable/     where the synced files are kept
// KESTRIN_DATA    the folder of the files that are meant
// KESTRIN_THREADS_BEFORE  how many threads start before the fault "thread" holds

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/CallJudge.hpp"

namespace {

using TestSupport::CallTarget;
using TestSupport::SystemCall;

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string inFolder(const std::string& name) {
    return variable("KESTRIN_FAULTS") + "/" + name;
}

/// The error number of a fault; 0 if it is not turned on.
int faultOf(const char* name) {
    const int file = ::open(inFolder(name).c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return 0;
    char digits[8] = {};
    const ssize_t size = ::read(file, digits, sizeof digits - 1);
    ::close(file);
    return size > 0 ? std::atoi(digits) : 0;
}

bool isData(const CallTarget& target) {
    const std::string folder = variable("KESTRIN_DATA");
    return !folder.empty() && target.path().starts_with(folder + "/");
}

bool isInterruptedNow() {
    static std::atomic<unsigned> calls = 0;
    return faultOf("interrupted") != 0 && calls++ % 2 == 0;
}

/// Keeps a file as it is now, whole or not at all.
void keep(const std::string& from) {
    const std::string to = inFolder("durable" + from.substr(from.rfind('/')));
    const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int copy = ::open((to + ".new").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    char piece[65536];
    ssize_t size = 0;
    while (source >= 0 && copy >= 0 && (size = ::read(source, piece, sizeof piece)) > 0)
        if (::syscall(SYS_write, copy, piece, size) != size) std::abort();
    ::close(source);
    ::close(copy);
    ::rename((to + ".new").c_str(), to.c_str());
}

/// Notes each failure, so that a test sees how often it was tried.
void noteRefusedConnection() {
    const int file = ::open(inFolder("refused").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    ::syscall(SYS_write, file, "x", 1);
    ::close(file);
}

int errorOfThread() {
    static std::atomic<int> left = std::atoi(variable("KESTRIN_THREADS_BEFORE").c_str());
    const int error = faultOf("thread");
    return error != 0 && left-- <= 0 ? error : 0;
}

/// As the folder says.
class FolderJudge final : public TestSupport::CallJudge {
  public:
    int errorOf(SystemCall call, const CallTarget& target) override {
        switch (call) {
            case SystemCall::write:
                if (!isData(target)) return 0;
                return isInterruptedNow() ? EINTR : faultOf("write");
            case SystemCall::sync:
                return isData(target) ? faultOf("sync") : 0;
            case SystemCall::accept: {
                const int error = faultOf("accept");
                if (error != 0) noteRefusedConnection();
                return error;
            }
            case SystemCall::thread:
                return errorOfThread();
            default:
                return 0;
        }
    }

    std::size_t taken(const CallTarget& target, std::size_t size) override {
        return size > 1 && isData(target) && faultOf("short") != 0 ? size / 2 : size;
    }

    bool hasSynced(const CallTarget& target) override {
        if (isData(target) && faultOf("forget") == 0) keep(target.path());
        return true;
    }
};

[[gnu::constructor]] void begin() {
    static FolderJudge judge;
    TestSupport::setCallJudge(&judge);
}

}  // namespace
