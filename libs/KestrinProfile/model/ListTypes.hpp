#pragma once

#include <string>
#include <utility>

namespace KestrinProfile {

/// Names one of a profile's lists, for clients that address lists by name. It has no equality: a
/// free name may be the same text as one of the four.
class ListTypes {
  public:
    /// A list of any name.
    [[nodiscard]] static ListTypes list(std::string name) { return ListTypes(std::move(name)); }
    [[nodiscard]] static ListTypes watchList() { return ListTypes("watchlist"); }
    [[nodiscard]] static ListTypes history() { return ListTypes("history"); }
    [[nodiscard]] static ListTypes favorites() { return ListTypes("favorites"); }
    [[nodiscard]] static ListTypes searchHistory() { return ListTypes("searchhistory"); }

    /// The list's name: the given text unchanged, or the service's name of the list.
    [[nodiscard]] const std::string& rawValue() const noexcept { return name_; }

  private:
    explicit ListTypes(std::string name) : name_(std::move(name)) {}

    std::string name_;
};

}  // namespace KestrinProfile
