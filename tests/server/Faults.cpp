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
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string inFolder(const std::string& name) {
    return variable("KESTRIN_FAULTS") + "/" + name;
}

/// The error number of a fault; 0 if it is not turned on.
int faultOf(const char* name) {
    const int file = static_cast<int>(
        ::syscall(SYS_openat, AT_FDCWD, inFolder(name).c_str(), O_RDONLY | O_CLOEXEC));
    if (file < 0) return 0;
    char digits[8] = {};
    const ssize_t size = ::read(file, digits, sizeof digits - 1);
    ::close(file);
    return size > 0 ? std::atoi(digits) : 0;
}

std::string pathOf(int file) {
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    char path[4096] = {};
    const ssize_t size = ::readlink(link.c_str(), path, sizeof path);
    return size > 0 ? std::string(path, static_cast<std::size_t>(size)) : "";
}

bool isData(int file) {
    const std::string folder = variable("KESTRIN_DATA");
    return !folder.empty() && pathOf(file).starts_with(folder + "/");
}

bool isInterruptedNow() {
    static std::atomic<unsigned> calls = 0;
    return faultOf("interrupted") != 0 && calls++ % 2 == 0;
}

template <class Function>
Function original(const char* name, Function) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

/// -1 with an error, or how much of the size to write.
ssize_t allowedOf(int file, std::size_t size) {
    if (!isData(file)) return static_cast<ssize_t>(size);
    if (isInterruptedNow()) {
        errno = EINTR;
        return -1;
    }
    if (const int error = faultOf("write")) {
        errno = error;
        return -1;
    }
    return static_cast<ssize_t>(faultOf("short") != 0 && size > 1 ? size / 2 : size);
}

/// Keeps the file as it is now, whole or not at all.
void keep(int file) {
    const std::string from = pathOf(file);
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

int synced(int file) {
    if (!isData(file)) return 0;
    if (const int error = faultOf("sync")) {
        errno = error;
        return -1;
    }
    if (faultOf("forget") == 0) keep(file);
    return 0;
}

/// Notes each failure, so that a test sees how often it was tried.
int refusedConnection(int error) {
    const int file = ::open(inFolder("refused").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    ::syscall(SYS_write, file, "x", 1);
    ::close(file);
    errno = error;
    return -1;
}

}  // namespace

extern "C" {

ssize_t write(int file, const void* data, std::size_t size) {
    const ssize_t allowed = allowedOf(file, size);
    return allowed < 0 ? -1 : ::syscall(SYS_write, file, data, allowed);
}

ssize_t pwrite(int file, const void* data, std::size_t size, off_t at) {
    const ssize_t allowed = allowedOf(file, size);
    return allowed < 0 ? -1 : ::syscall(SYS_pwrite64, file, data, allowed, at);
}

ssize_t pwrite64(int file, const void* data, std::size_t size, off64_t at) {
    return pwrite(file, data, size, at);
}

int fsync(int file) {
    return synced(file);
}

int fdatasync(int file) {
    return synced(file);
}

int accept(int socket, sockaddr* address, socklen_t* size) {
    if (const int error = faultOf("accept")) return refusedConnection(error);
    static const auto call = original("accept", &accept);
    return call(socket, address, size);
}

int accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
    if (const int error = faultOf("accept")) return refusedConnection(error);
    static const auto call = original("accept4", &accept4);
    return call(socket, address, size, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
    static std::atomic<int> left = std::atoi(variable("KESTRIN_THREADS_BEFORE").c_str());
    if (const int error = faultOf("thread"); error != 0 && left-- <= 0) return error;
    static const auto call = original("pthread_create", &pthread_create);
    return call(thread, attributes, start, argument);
}
}
