#include "StandardStreams.hpp"

#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace KestrinProfileCLI {

void replaceClosedStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) != -1) continue;
        // The lowest free number is given, which is this one. The wrong direction makes its use
        // fail.
        if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) != stream) return;
    }
}

}  // namespace KestrinProfileCLI
