#pragma once

#include <string>
#include <utility>

namespace KestrinProfile {

/// Names one of a profile's lists, for clients that address lists by name. It has no equality: a
/// free name may be the same text as one of the four.
class ListTypes {
  public:
    enum class Case { list, watchList, history, favorites, searchHistory };

    /// A list of any name.
    [[nodiscard]] static ListTypes list(std::string name) { return {Case::list, std::move(name)}; }
    [[nodiscard]] static ListTypes watchList() { return {Case::watchList, "watchlist"}; }
    [[nodiscard]] static ListTypes history() { return {Case::history, "history"}; }
    [[nodiscard]] static ListTypes favorites() { return {Case::favorites, "favorites"}; }
    [[nodiscard]] static ListTypes searchHistory() {
        return {Case::searchHistory, "searchhistory"};
    }

    /// The case, for a `switch`. A list of any name is `Case::list`, whatever the name.
    [[nodiscard]] Case value() const noexcept { return value_; }

    /// The list's name: the given text unchanged, or the service's name of the list.
    [[nodiscard]] std::string rawValue() const { return name_; }

  private:
    ListTypes(Case value, std::string name) : value_(value), name_(std::move(name)) {}

    Case value_;
    std::string name_;
};

}  // namespace KestrinProfile
