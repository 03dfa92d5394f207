#pragma once

#include <cstdlib>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace TestSupport {

/// How a forked process ends.
enum class ChildEnds {
    asAProgram,  ///< with all that is registered for that
    atOnce,      ///< for a sanitizer would report what the threads held that are not there
};

/// What a forked process ends with: 0 if all is well there; minus the signal if one ended it.
[[nodiscard]] inline int resultOfChild(const std::function<bool()>& isWell, ChildEnds end) {
    constexpr unsigned secondsUntilItHangs = 600;
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(secondsUntilItHangs);
        const int result = isWell() ? 0 : 1;
        if (end == ChildEnds::atOnce) ::_exit(result);
        std::exit(result);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace TestSupport
