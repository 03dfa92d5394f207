#pragma once

#include <string>
#include <utility>

namespace KestrinProfile {

/// Names one of a profile's lists, for clients that address lists by name. It has no equality: a
/// free name may be the same text as one of the four.
class ListTypes {
  public:
    /// The lists.
    enum class Case {
        list,           ///< one of any name
        watchList,      ///< videos to watch
        history,        ///< videos that were watched
        favorites,      ///< favourite shows
        searchHistory,  ///< texts that were searched for
    };

    /// A list of any name.
    [[nodiscard]] static ListTypes list(std::string name) { return {Case::list, std::move(name)}; }
    /// The videos to watch.
    [[nodiscard]] static ListTypes watchList() { return {Case::watchList, "watchlist"}; }
    /// The videos that were watched.
    [[nodiscard]] static ListTypes history() { return {Case::history, "history"}; }
    /// The favourite shows.
    [[nodiscard]] static ListTypes favorites() { return {Case::favorites, "favorites"}; }
    /// The texts that were searched for.
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
