#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <initializer_list>
#include <string>
#include <unistd.h>
#include <vector>

#include "ExitCode.hpp"
#include "Interruption.hpp"
#include "Program.hpp"
#include "Session.hpp"

namespace {

using namespace KestrinProfileCLI;

/// Opens every standard stream that the program was started without on something that can be
/// neither read nor written. Otherwise the next file or connection would get its number, and what
/// is printed would go there. Called before anything else is opened.
void replaceClosedStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) != -1) continue;
        // The lowest free number is given, which is this one. The wrong direction makes its use
        // fail.
        if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) != stream) return;
    }
}

}  // namespace

int main(int argc, char** argv) {
    replaceClosedStandardStreams();
    try {
        Interruption interruption;
        Session session(interruption);
        return static_cast<int>(
            runProgram(session, std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc)));
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "error: %s\n", error.what()));
        return static_cast<int>(ExitCode::serviceError);
    }
}
