#pragma once

#include <cstddef>
#include <string>

namespace TestSupport {

/// The calls to the system that a test can make fail; each stands for its variants, too: `write`
/// for pwrite, `sync` for fsync and fdatasync.
enum class SystemCall {
    open,
    read,
    write,
    sync,
    truncate,
    rename,
    flock,
    fstat,
    fchmod,
    unlink,
    accept,
    thread,
};

/// The file that a call is about.
class CallTarget {
  public:
    explicit CallTarget(int file) noexcept : file_(file) {}
    explicit CallTarget(const char* path) noexcept : path_(path) {}

    /// Its path; empty if it has none.
    [[nodiscard]] std::string path() const;

  private:
    int file_ = -1;
    const char* path_ = nullptr;
};

/// Decides what becomes of the calls of a process. Its members are called from any thread, and
/// their own calls are judged like all others.
class CallJudge {
  public:
    CallJudge() = default;
    CallJudge(const CallJudge&) = delete;
    CallJudge& operator=(const CallJudge&) = delete;
    virtual ~CallJudge() = default;

    /// The number of the error with which a call fails; 0: it does not.
    [[nodiscard]] virtual int errorOf(SystemCall call, const CallTarget& target) = 0;

    /// How many bytes a write takes, of those that it is given.
    [[nodiscard]] virtual std::size_t taken(const CallTarget& target, std::size_t size) = 0;

    /// Whether a file that is synced has been by this.
    [[nodiscard]] virtual bool hasSynced(const CallTarget& target) = 0;
};

/// From now on a judge decides in the process that links kestrin_judged_calls, or preloads it;
/// null: the system alone.
/// @param judge  lives as long as the process
void setCallJudge(CallJudge* judge) noexcept;

}  // namespace TestSupport
