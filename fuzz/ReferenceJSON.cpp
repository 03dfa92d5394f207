#include "fuzz/ReferenceJSON.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

namespace Fuzz {

namespace {

using JSON = nlohmann::json;

std::string jsonTextOf(const std::string& text) {
    return JSON(text).dump();
}

/// Writes what the other parser reports.
class Writer final : public nlohmann::json_sax<JSON> {
  public:
    bool null() override { return value("null"); }
    bool boolean(bool value) override { return this->value(value ? "true" : "false"); }
    bool number_integer(number_integer_t number) override { return value(std::to_string(number)); }
    bool number_unsigned(number_unsigned_t number) override {
        return value(std::to_string(number));
    }
    bool number_float(number_float_t, const string_t& text) override { return value(text); }
    bool string(string_t& text) override { return value(jsonTextOf(text)); }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return start('{'); }
    bool end_object() override { return end('}'); }
    bool start_array(std::size_t) override { return start('['); }
    bool end_array() override { return end(']'); }

    bool key(string_t& key) override {
        if (skipped_ > 0) return true;
        Level& level = levels_.back();
        level.isDropped = !level.keys.insert(key).second;
        if (level.isDropped) return true;
        separate(level);
        result.written->append(jsonTextOf(key)) += ':';
        return true;
    }

    bool parse_error(std::size_t, const std::string&, const JSON::exception& error) override {
        // "number overflow"
        result.isUnknown = error.id == 406;
        result.written.reset();
        return false;
    }

    ReferenceJSON result{.written = ""};

  private:
    struct Level {
        bool isObject;
        std::set<std::string> keys = {};
        bool isDropped = false;  // the member whose key came last
        bool isEmpty = true;
    };

    void separate(Level& level) {
        if (!level.isEmpty) *result.written += ',';
        level.isEmpty = false;
    }

    /// Whether the value that comes is written; puts a comma in front of it if it has to be.
    bool isWritten() {
        if (skipped_ > 0) return false;
        if (levels_.empty()) return true;
        Level& level = levels_.back();
        if (!level.isObject) separate(level);
        return !level.isObject || !level.isDropped;
    }

    bool value(const std::string& text) {
        if (isWritten()) *result.written += text;
        return true;
    }

    bool start(char bracket) {
        const bool isFirst = depth_ == 0;
        result.depth = std::max(result.depth, ++depth_);
        if (isFirst) result.isDictionary = bracket == '{';
        if (!isWritten()) {
            ++skipped_;
            return true;
        }
        *result.written += bracket;
        levels_.push_back({.isObject = bracket == '{'});
        return true;
    }

    bool end(char bracket) {
        --depth_;
        if (skipped_ > 0) {
            --skipped_;
            return true;
        }
        *result.written += bracket;
        levels_.pop_back();
        return true;
    }

    std::vector<Level> levels_;
    int skipped_ = 0;
    int depth_ = 0;
};

}  // namespace

ReferenceJSON referenceJSON(std::string_view text) {
    Writer writer;
    // It skips a byte-order mark and takes NUL for the end, neither of which is JSON.
    if (text.starts_with("\xEF\xBB\xBF") || text.find('\0') != text.npos ||
        !JSON::sax_parse(text, &writer))
        writer.result.written.reset();
    return writer.result;
}

}  // namespace Fuzz
