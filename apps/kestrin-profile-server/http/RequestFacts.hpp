#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace KestrinProfileServer {

struct Route;

/// What a request is about, as far as its method and target say so, whatever is wrong with it.
struct RequestFacts {
    const Route* route = nullptr;        ///< null: no operation of the protocol
    std::optional<std::string> profile;  ///< the addressed one
    std::optional<std::string> item;     ///< the video, the show or the search

    /// The operation's name; empty if there is none.
    [[nodiscard]] std::string_view operation() const;
};

/// @param target  below the base address of its namespace
[[nodiscard]] RequestFacts requestFacts(std::string_view method, std::string_view target);

}  // namespace KestrinProfileServer
