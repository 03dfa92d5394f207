#include "Readable.hpp"

#include <chrono>
#include <poll.h>

#include "ExitCode.hpp"

namespace KestrinProfileCLI {

void awaitReadable(Interruption& interruption, int descriptor) {
    constexpr int pollMilliseconds = 100;
    pollfd waited{descriptor, POLLIN, 0};
    do {
        if (!interruption.pause(std::chrono::seconds(0)))
            throw CommandError({ExitCode::interrupted, "interrupted", {}});
    } while (poll(&waited, 1, pollMilliseconds) == 0);
}

}  // namespace KestrinProfileCLI
