#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <KestrinConfigManager/Export.hpp>
#include <KestrinConfigManager/TextMap.hpp>

namespace KestrinConfigManager {

/// A URL with placeholders, e.g. "https://api.example.com/v1/history?profile=%UXID%". A placeholder
/// is a per cent sign, three or more upper-case letters, and a per cent sign; an encoded byte such
/// as %2F is not one. If two readings overlap, as in "%ABC%UXID%", the left one counts. The
/// template is taken apart once; filling it is one pass, and a value is never looked at again for
/// placeholders.
class KESTRIN_CONFIG_MANAGER_EXPORT URLTemplate {
  public:
    /// An empty template.
    URLTemplate() = default;
    /// Takes a template apart. Any text will do; what it makes is checked when it is filled.
    explicit URLTemplate(std::string text);

    /// The template as it was given.
    [[nodiscard]] const std::string& text() const noexcept { return text_; }

    /// The tokens of the placeholders, e.g. "%UXID%", in order; one that stands there twice is
    /// given twice. The views live as long as this object is neither changed nor destroyed.
    [[nodiscard]] std::vector<std::string_view> placeholders() const;

    /// The first placeholder for which there is no value; absent if all can be filled. An empty
    /// value is a value.
    [[nodiscard]] std::optional<std::string_view> unfilled(const TextMap& values) const;

    /// The URL with every placeholder replaced by its value as it stands; one without a value is
    /// left as it is.
    [[nodiscard]] std::string filled(const TextMap& values) const;

    /// Where the path begins: after the scheme and the authority, if there are any.
    [[nodiscard]] std::size_t pathBegin() const noexcept;

    /// The template's path without query, placeholders and all: what a log may show. "/" if it
    /// is empty.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

  private:
    /// Where a placeholder stands in the text.
    struct Slot {
        std::size_t begin;
        std::size_t length;
    };

    [[nodiscard]] std::string_view token(const Slot& slot) const noexcept {
        return {text_.data() + slot.begin, slot.length};
    }

    [[nodiscard]] std::string pathInText() const;

    std::string text_;
    std::string path_ = "/";
    std::vector<Slot> slots_;
    std::vector<std::size_t> slotsByToken_;  ///< indices of the slots, sorted by their tokens
};

}  // namespace KestrinConfigManager
