#include <chrono>
#include <cstdint>
#include <utility>
#include <variant>
#include <vector>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinHousehold/outbox/internal/EntryText.hpp>

namespace KestrinHousehold::internal {

using HalvardSling::JSONDictionary;
using KestrinProfile::UserProfileElement;
using std::chrono::milliseconds;
using WallTime = Scheduler::WallTime;

namespace {

struct Keys {
    static constexpr const char* profile = "profile";
    static constexpr const char* brand = "brand";
    static constexpr const char* operation = "operation";
    static constexpr const char* item = "item";
    static constexpr const char* shows = "shows";
    static constexpr const char* progress = "progress";
    static constexpr const char* isComplete = "isCompleted";
    static constexpr const char* acceptedAt = "acceptedAt";
    static constexpr const char* clockDifference = "clockDifference";
    static constexpr const char* ownUntil = "ownUntil";
    static constexpr const char* refusal = "refusal";
    static constexpr const char* at = "at";
    static constexpr const char* status = "status";
    static constexpr const char* title = "title";
    static constexpr const char* detail = "detail";
};

/// Times are kept in milliseconds since 1970.
std::int64_t millisecondsOf(WallTime time) {
    return std::chrono::floor<milliseconds>(time.time_since_epoch()).count();
}

WallTime timeOf(std::int64_t count) {
    return WallTime(std::chrono::duration_cast<WallTime::duration>(milliseconds(count)));
}

std::string textIn(const JSONDictionary& json, const char* key) {
    return std::string(json.text(key).value_or(""));
}

void setWrite(JSONDictionary& json, const OutboxWrite& write) {
    json.setText(Keys::profile, write.profileID);
    json.setText(Keys::brand, write.brandID);
    json.setText(Keys::operation, rawValue(write.operation));
    if (!write.itemID.empty()) json.setText(Keys::item, write.itemID);
    if (write.progress) json.setInteger(Keys::progress, *write.progress);
    if (write.isComplete) json.setBoolean(Keys::isComplete, *write.isComplete);
    if (write.shows.empty()) return;
    std::vector<JSONDictionary> shows;
    shows.reserve(write.shows.size());
    for (const auto& show : write.shows)
        shows.push_back(show.serialized().value_or(JSONDictionary()));
    json.setDictionaries(Keys::shows, shows);
}

std::optional<OutboxWrite> writeIn(const JSONDictionary& json) {
    const auto name = json.text(Keys::operation);
    const auto operation = name ? KestrinProfile::profileOperation(*name) : std::nullopt;
    if (!operation) return std::nullopt;
    OutboxWrite write{textIn(json, Keys::profile), textIn(json, Keys::brand), *operation,
                      textIn(json, Keys::item)};
    write.progress = json.integer(Keys::progress);
    write.isComplete = json.boolean(Keys::isComplete);
    if (const auto shows = json.dictionaries(Keys::shows))
        for (const auto& show : *shows)
            write.shows.push_back(
                UserProfileElement::fromJSON(show).value_or(UserProfileElement()));
    return write;
}

void setRefusal(JSONDictionary& json, const OutboxRefusal& refusal) {
    JSONDictionary inner;
    inner.setInteger(Keys::at, millisecondsOf(refusal.at));
    inner.setInteger(Keys::status, refusal.status);
    inner.setText(Keys::title, refusal.title);
    inner.setText(Keys::detail, refusal.detail);
    json.setDictionary(Keys::refusal, inner);
}

std::optional<OutboxRefusal> refusalIn(const JSONDictionary& json) {
    const auto inner = json.dictionary(Keys::refusal);
    if (!inner) return std::nullopt;
    return OutboxRefusal{timeOf(inner->integer(Keys::at).value_or(0)),
                         static_cast<int>(inner->integer(Keys::status).value_or(0)),
                         textIn(*inner, Keys::title), textIn(*inner, Keys::detail)};
}

}  // namespace

std::string textOf(const OutboxEntry& entry) {
    JSONDictionary json;
    setWrite(json, entry.write);
    json.setInteger(Keys::acceptedAt, millisecondsOf(entry.acceptedAt));
    if (entry.clockDifference)
        json.setInteger(Keys::clockDifference, entry.clockDifference->count());
    if (entry.ownUntil) json.setInteger(Keys::ownUntil, millisecondsOf(*entry.ownUntil));
    if (entry.refusal) setRefusal(json, *entry.refusal);
    return json.toJSON();
}

std::optional<OutboxEntry> entryIn(std::string_view text) {
    const auto parsed = JSONDictionary::parse(text);
    const auto* const json = std::get_if<JSONDictionary>(&parsed);
    if (json == nullptr) return std::nullopt;
    auto write = writeIn(*json);
    const auto acceptedAt = json->integer(Keys::acceptedAt);
    if (!write || !acceptedAt || problemOf(*write)) return std::nullopt;
    OutboxEntry entry;
    entry.write = std::move(*write);
    entry.acceptedAt = timeOf(*acceptedAt);
    if (const auto difference = json->integer(Keys::clockDifference))
        entry.clockDifference = milliseconds(*difference);
    if (const auto until = json->integer(Keys::ownUntil)) entry.ownUntil = timeOf(*until);
    entry.refusal = refusalIn(*json);
    return entry;
}

std::int64_t checksumOf(std::int64_t number, std::string_view text) {
    auto sum = std::uint64_t{0xCBF29CE484222325} ^ static_cast<std::uint64_t>(number);
    for (const char character : text) {
        sum ^= static_cast<unsigned char>(character);
        sum *= std::uint64_t{0x100000001B3};
    }
    return static_cast<std::int64_t>(sum);
}

}  // namespace KestrinHousehold::internal
