// Makes one call while callgrind collects, so that it counts the instructions of a layer:
//   valgrind --tool=callgrind --collect-atstart=no session_instructions LAYER

#include <cstdio>
#include <valgrind/callgrind.h>

#include "household/SessionCalls.hpp"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: session_instructions LAYER\n");
        return 2;
    }
    Bench::SessionCalls calls(CONFIGURATION);
    if (!calls.call(argv[1])) return 1;
    CALLGRIND_TOGGLE_COLLECT;
    const bool hasCome = calls.call(argv[1]);
    CALLGRIND_TOGGLE_COLLECT;
    return hasCome ? 0 : 1;
}
