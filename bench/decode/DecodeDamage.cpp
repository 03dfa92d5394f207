// How often each decoder takes a text with one broken byte for a reply, and how often such a text
// ends the process. Broken are the texts that nlohmann-json, the strictest of them, refuses.

#include <cstdio>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "decode/Decoders.hpp"
#include "support/ListText.hpp"

namespace {

bool takes(const Bench::Decoder& decoder, const HalvardSling::Response& reply) {
    try {
        static_cast<void>(decoder.decode(reply));
        return true;
    } catch (...) {
        return false;
    }
}

struct Outcome {
    int accepted = 0;
    int crashed = 0;
};

/// Decodes each reply in a process of its own.
Outcome outcomeOf(const Bench::Decoder& decoder,
                  const std::vector<HalvardSling::Response>& replies) {
    Outcome outcome;
    for (const auto& reply : replies) {
        const pid_t child = fork();
        if (child == 0) _exit(takes(decoder, reply) ? 0 : 1);
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFEXITED(status)) ++outcome.crashed;
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) ++outcome.accepted;
    }
    return outcome;
}

/// A number may be beyond every range: JSON knows none.
bool isJSON(const std::string& text) {
    try {
        return !nlohmann::json::parse(text).is_discarded();
    } catch (const nlohmann::json::parse_error&) {
        return false;
    } catch (const nlohmann::json::out_of_range&) {
        return true;
    }
}

/// Replies with one byte replaced, that are no JSON any more.
std::vector<HalvardSling::Response> brokenReplies(std::size_t count) {
    const std::string whole = Bench::listText(20);
    std::mt19937 random(1);
    std::vector<HalvardSling::Response> replies;
    while (replies.size() < count) {
        std::string text = whole;
        text[random() % text.size()] = static_cast<char>(random() % 256);
        if (!isJSON(text)) replies.push_back(Bench::replyOf(std::move(text)));
    }
    return replies;
}

}  // namespace

int main() {
    const auto replies = brokenReplies(2000);
    std::printf("{\"broken\": %zu, \"decoders\": {", replies.size());
    const char* separator = "";
    for (const auto& decoder : Bench::decoders()) {
        if (decoder.decode == &Bench::copyRecord) continue;
        std::fflush(stdout);
        const Outcome outcome = outcomeOf(decoder, replies);
        std::printf("%s\"%s\": {\"accepted\": %d, \"crashed\": %d}", separator, decoder.name,
                    outcome.accepted, outcome.crashed);
        separator = ", ";
    }
    std::printf("}}\n");
}
