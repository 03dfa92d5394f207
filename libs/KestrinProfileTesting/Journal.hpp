#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include <HalvardSling/json/JSONDictionary.hpp>

namespace KestrinProfileTesting {

/// Which requests of a development service's journal are meant: those that have all of this. A
/// value; each function sets one more condition.
///
///     Requests().method("PUT").profile("anna").item("v1")
class Requests {
  public:
    /// The name of the operation in the configuration, e.g. "personalization-history-add-video".
    Requests operation(std::string_view name) && { return with("operation", name); }
    /// The identifier of the profile whose data is meant.
    Requests profile(std::string_view profileID) && { return with("profile", profileID); }
    /// The household's name.
    Requests household(std::string_view name) && { return with("household", name); }
    /// The identifier of the video or show, or the text that was searched for.
    Requests item(std::string_view id) && { return with("item", id); }
    /// E.g. "PUT".
    Requests method(std::string_view name) && { return with("method", name); }
    /// Without the query, e.g. "/v1/history".
    Requests path(std::string_view text) && { return with("path", text); }
    /// "204", or a class like "4xx".
    Requests status(std::string_view text) && { return with("status", text); }
    /// The type of a problem document, or its last part, e.g. "token-refused".
    Requests problem(std::string_view type) && { return with("problem", type); }
    /// A part of the request's body or the reply's.
    Requests bodyContains(std::string_view text) && { return with("bodyContains", text); }
    /// Those after the entry with this number.
    Requests since(std::int64_t entry) && { return with("since", std::to_string(entry)); }

    /// What the admin interface is told.
    [[nodiscard]] const HalvardSling::JSONDictionary& filter() const noexcept { return filter_; }

  private:
    Requests with(std::string_view name, std::string_view value) {
        filter_.setText(name, value);
        return std::move(*this);
    }

    HalvardSling::JSONDictionary filter_;
};

/// How many requests are expected; made by `exactly`, `atLeast` and `atMost`.
struct Expected {
    std::string_view bound;  ///< as the admin interface calls it
    std::size_t count = 0;   ///< how many
};

/// As many requests, no more and no fewer.
[[nodiscard]] constexpr Expected exactly(std::size_t count) noexcept {
    return {"exactly", count};
}
/// As many requests, or more.
[[nodiscard]] constexpr Expected atLeast(std::size_t count) noexcept {
    return {"atLeast", count};
}
/// As many requests, or fewer, or none.
[[nodiscard]] constexpr Expected atMost(std::size_t count) noexcept {
    return {"atMost", count};
}

/// What came of looking into the journal.
struct Verification {
    bool isSatisfied = false;  ///< whether it was as expected
    std::size_t count = 0;     ///< how many requests were found
    /// For people: what was expected and found, and which requests were nearly right.
    std::string text;

    /// Whether it was as expected.
    [[nodiscard]] explicit operator bool() const noexcept { return isSatisfied; }
};

}  // namespace KestrinProfileTesting
