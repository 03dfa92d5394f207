#include "OnlyDemo.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "../ExitCode.hpp"

namespace KestrinProfileCLI {

// The lock is on the configuration file itself: it leaves nothing behind, whatever ends the demo.
// Where the file system has no locks a demo plays without.
OnlyDemo::OnlyDemo(const std::filesystem::path& configurationFile)
    : file_(open(configurationFile.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (file_ < 0 || flock(file_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
    close(file_);
    throw CommandError({ExitCode::validation, "another demo plays with this configuration",
                        "wait for its end: it needs the household for itself"});
}

OnlyDemo::~OnlyDemo() {
    if (file_ >= 0) close(file_);
}

}  // namespace KestrinProfileCLI
