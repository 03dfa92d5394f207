// Stands between a program and the system.

#include "support/CallJudge.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TestSupport {

namespace {

std::atomic<CallJudge*> theJudge = nullptr;

/// The system's own function.
template <class Function>
Function* original(const char* name) {
    void* const found = ::dlsym(RTLD_NEXT, name);
    Function* function = nullptr;
    std::memcpy(&function, &found, sizeof function);
    return function;
}

/// The error of a call; 0 if it does not fail.
template <class Target>
int errorOf(SystemCall call, Target target) {
    CallJudge* const judge = theJudge;
    return judge == nullptr ? 0 : judge->errorOf(call, CallTarget(target));
}

/// Whether a call fails, with `errno` set.
template <class Target>
bool fails(SystemCall call, Target target) {
    const int error = errorOf(call, target);
    if (error != 0) errno = error;
    return error != 0;
}

size_t taken(int file, size_t size) {
    CallJudge* const judge = theJudge;
    return judge == nullptr ? size : std::min(size, judge->taken(CallTarget(file), size));
}

bool hasSynced(int file) {
    CallJudge* const judge = theJudge;
    return judge != nullptr && judge->hasSynced(CallTarget(file));
}

template <class Function, class... Arguments>
auto judged(const char* name, SystemCall call, int file, Arguments... arguments) {
    using Result = decltype(original<Function>(name)(file, arguments...));
    if (fails(call, file)) return Result{-1};
    return original<Function>(name)(file, arguments...);
}

int synced(const char* name, int file) {
    if (fails(SystemCall::sync, file)) return -1;
    return hasSynced(file) ? 0 : original<int(int)>(name)(file);
}

int opened(const char* name, const char* path, int flags, unsigned mode) {
    if (fails(SystemCall::open, path)) return -1;
    return original<int(const char*, int, ...)>(name)(path, flags, mode);
}

}  // namespace

std::string CallTarget::path() const {
    if (path_ != nullptr) return path_;
    std::array<char, 4096> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(file_);
    const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
    return size > 0 ? std::string(path.data(), static_cast<std::size_t>(size)) : std::string();
}

void setCallJudge(CallJudge* judge) noexcept {
    theJudge = judge;
}

}  // namespace TestSupport

using TestSupport::SystemCall;
using namespace TestSupport;

// In the place of the system's functions.
extern "C" {
// NOLINTBEGIN(cert-dcl50-cpp): as they are declared
int open(const char* path, int flags, ...) {
    std::va_list more;
    va_start(more, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0U;
    va_end(more);
    return opened("open", path, flags, mode);
}
int open64(const char* path, int flags, ...) {
    std::va_list more;
    va_start(more, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(more, unsigned) : 0U;
    va_end(more);
    return opened("open64", path, flags, mode);
}
// NOLINTEND(cert-dcl50-cpp)
ssize_t read(int file, void* to, size_t size) {
    return judged<ssize_t(int, void*, size_t)>("read", SystemCall::read, file, to, size);
}
ssize_t pread64(int file, void* to, size_t size, off64_t at) {
    return judged<ssize_t(int, void*, size_t, off64_t)>("pread64", SystemCall::read, file, to, size,
                                                        at);
}
ssize_t write(int file, const void* from, size_t size) {
    return judged<ssize_t(int, const void*, size_t)>("write", SystemCall::write, file, from,
                                                     taken(file, size));
}
ssize_t pwrite(int file, const void* from, size_t size, off_t at) {
    return judged<ssize_t(int, const void*, size_t, off_t)>("pwrite", SystemCall::write, file, from,
                                                            taken(file, size), at);
}
ssize_t pwrite64(int file, const void* from, size_t size, off64_t at) {
    return judged<ssize_t(int, const void*, size_t, off64_t)>("pwrite64", SystemCall::write, file,
                                                              from, taken(file, size), at);
}
int fsync(int file) {
    return synced("fsync", file);
}
int fdatasync(int file) {
    return synced("fdatasync", file);
}
int ftruncate(int file, off_t size) noexcept {
    return judged<int(int, off_t)>("ftruncate", SystemCall::truncate, file, size);
}
int ftruncate64(int file, off64_t size) noexcept {
    return judged<int(int, off64_t)>("ftruncate64", SystemCall::truncate, file, size);
}
int rename(const char* from, const char* to) noexcept {
    if (fails(SystemCall::rename, from)) return -1;
    return original<int(const char*, const char*)>("rename")(from, to);
}
int flock(int file, int operation) noexcept {
    return judged<int(int, int)>("flock", SystemCall::flock, file, operation);
}
int fstat(int file, struct stat* status) noexcept {
    return judged<int(int, struct stat*)>("fstat", SystemCall::fstat, file, status);
}
int fchmod(int file, mode_t mode) noexcept {
    return judged<int(int, mode_t)>("fchmod", SystemCall::fchmod, file, mode);
}
int unlink(const char* path) noexcept {
    if (fails(SystemCall::unlink, path)) return -1;
    return original<int(const char*)>("unlink")(path);
}
int accept(int socket, sockaddr* address, socklen_t* size) {
    return judged<int(int, sockaddr*, socklen_t*)>("accept", SystemCall::accept, socket, address,
                                                   size);
}
int accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
    return judged<int(int, sockaddr*, socklen_t*, int)>("accept4", SystemCall::accept, socket,
                                                        address, size, flags);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
    if (const int error = errorOf(SystemCall::thread, -1)) return error;
    return original<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
        "pthread_create")(thread, attributes, start, argument);
}
}
