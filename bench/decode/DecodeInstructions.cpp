// Decodes one list while callgrind collects, so that it counts the instructions of a decoder:
//   valgrind --tool=callgrind --collect-atstart=no decode_instructions NAME ENTRIES

#include <cstdio>
#include <string>
#include <valgrind/callgrind.h>

#include "decode/Decoders.hpp"
#include "support/ListText.hpp"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: decode_instructions NAME ENTRIES\n");
        return 2;
    }
    const auto& decoder = Bench::decoderNamed(argv[1]);
    const auto reply = Bench::replyOf(Bench::listText(std::stoul(argv[2])));
    static_cast<void>(decoder.decode(reply));
    CALLGRIND_TOGGLE_COLLECT;
    const auto list = decoder.decode(reply);
    CALLGRIND_TOGGLE_COLLECT;
    return list.elements->empty() ? 1 : 0;
}
