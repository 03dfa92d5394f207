#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace HalvardSling {

/// An application's own dictionary: a map where ours is a flat document.
class JSONDictionary {
  public:
    std::optional<std::string_view> text(std::string_view key) const {
        return value<std::string, std::string_view>(key);
    }
    std::optional<std::int64_t> integer(std::string_view key) const {
        return value<std::int64_t, std::int64_t>(key);
    }
    std::optional<bool> boolean(std::string_view key) const { return value<bool, bool>(key); }
    std::optional<std::vector<JSONDictionary>> dictionaries(std::string_view key) const {
        return value<std::vector<JSONDictionary>, std::vector<JSONDictionary>>(key);
    }

    void setText(std::string_view key, std::string_view text) { set(key, std::string(text)); }
    void setInteger(std::string_view key, std::int64_t number) { set(key, number); }
    void setBoolean(std::string_view key, bool truth) { set(key, truth); }
    void setDictionaries(std::string_view key, const std::vector<JSONDictionary>& all) {
        set(key, all);
    }

  private:
    using Value = std::variant<std::string, std::int64_t, bool, std::vector<JSONDictionary>>;

    template <class Held, class Given>
    std::optional<Given> value(std::string_view key) const {
        const auto found = values_.find(key);
        if (found == values_.end() || !std::holds_alternative<Held>(found->second))
            return std::nullopt;
        return std::get<Held>(found->second);
    }
    void set(std::string_view key, Value value) {
        values_.insert_or_assign(std::string(key), std::move(value));
    }

    std::map<std::string, Value, std::less<>> values_;
};

}  // namespace HalvardSling
