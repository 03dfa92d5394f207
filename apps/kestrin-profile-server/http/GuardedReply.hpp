#pragma once

#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Reply.hpp>

namespace KestrinProfileServer {

/// Runs `work` and turns whatever it throws into a failure reply.
template <class Work>
[[nodiscard]] Reply guardedReply(std::string_view path, const Work& work) {
    const std::string instance = excerptOf(path);
    try {
        return work();
    } catch (const Problem& problem) {
        return replyTo(problem, instance);
    } catch (const std::exception& failure) {
        std::cerr << instance << " failed: " << failure.what() << '\n';
        return replyTo(Problem(ProblemKind::internal,
                               "the service failed in a way that it does not know; its standard"
                               " error says more"),
                       instance);
    }
}

}  // namespace KestrinProfileServer
