#pragma once

#include <algorithm>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <ratio>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <KestrinC/internal/border/Problem.hpp>
#include <KestrinC/internal/records/Arena.hpp>
#include <KestrinC/kestrin_profile.h>
#include <KestrinHousehold/time/Scheduler.hpp>
#include <KestrinProfile/model/DateFormatter.hpp>
#include <internal/UTF8.hpp>

namespace KestrinC::internal {

// A structure of the interface stands for a record by a row of fields, which serves both ways:
// `show` lays a record out for C, `read` checks and takes what C has laid out.

/// A field: what it is called in C, and its two places: pointers to members, or functions that give
/// a reference.
template <class Member, class Value>
struct Field {
    const char* name;
    Member member;
    Value value;
};
// clang 16 makes none for an aggregate.
template <class Member, class Value>
Field(const char* name, Member member, Value value) -> Field<Member, Value>;

/// The row of a structure and a record: specialised with a tuple of fields, `row`.
template <class Structure, class Record>
struct Fields {};

template <class Structure, class Record>
concept HasFields = requires { Fields<Structure, Record>::row; };

/// How many cases an enumeration has whose numbers C may hand in.
template <class Enumeration>
inline constexpr int caseCount = 0;

/// How large the first version of a structure was. One that has grown says so in a specialisation.
template <class Structure>
inline constexpr std::size_t firstSize = sizeof(Structure);

/// A record to read into.
template <class Record>
[[nodiscard]] Record blank() {
    return {};
}

/// Where in an argument something stands, for messages: "call.shows[3].id".
class Path {
  public:
    explicit Path(const char* name) noexcept : name_(name) {}
    Path(const Path& parent, const char* name) noexcept : parent_(&parent), name_(name) {}
    Path(const Path& parent, std::size_t index) noexcept : parent_(&parent), index_(index) {}

    [[nodiscard]] std::string text() const {
        const std::string before = parent_ != nullptr ? parent_->text() : "";
        if (name_ == nullptr) return before + '[' + std::to_string(index_) + ']';
        return before.empty() ? name_ : before + '.' + name_;
    }

    [[noreturn]] void refuse(const std::string& problem,
                             kestrin_status status = KESTRIN_INVALID_ARGUMENT) const {
        throw Refused(status, text() + ' ' + problem);
    }

  private:
    const Path* parent_ = nullptr;
    const char* name_ = nullptr;
    std::size_t index_ = 0;
};

// ---- Reading what C hands in ------------------------------------------------------------------

/// A text, or none.
[[nodiscard]] inline std::optional<std::string_view> bytesOf(kestrin_text text, const Path& path) {
    if (text.data == nullptr && text.length > 0) path.refuse("has a length, but no data");
    if (text.data == nullptr) return std::nullopt;
    return std::string_view(text.data, text.length);
}

inline void read(kestrin_text text, std::optional<std::string>& value, const Path& path) {
    const auto bytes = bytesOf(text, path);
    if (!bytes) return value.reset();
    for (std::string_view rest = *bytes; !rest.empty();) {
        const auto character = KestrinInternal::firstUTF8Character(rest);
        if (!character.value)
            path.refuse(
                "is not UTF-8, from byte " + std::to_string(bytes->size() - rest.size()) + " on",
                KESTRIN_INVALID_UTF8);
        rest.remove_prefix(character.bytes);
    }
    value.emplace(*bytes);
}

inline void read(kestrin_text text, std::string& value, const Path& path) {
    std::optional<std::string> present;
    read(text, present, path);
    if (!present) path.refuse("is absent");
    value = std::move(*present);
}

/// A value that may be absent; in C it says so itself.
template <class Member, class Value>
    requires requires(const Member& member) { member.present; }
void read(const Member& member, std::optional<Value>& value, const Path& path) {
    value.reset();
    if (member.present) read(member.value, value.emplace(), path);
}

template <class Number, class Value>
    requires std::is_arithmetic_v<Number> && std::is_arithmetic_v<Value>
void read(Number number, Value& value, const Path& path) {
    if constexpr (std::integral<Number> && !std::same_as<Number, bool>)
        if (!std::in_range<Value>(number)) path.refuse("is out of range");
    value = static_cast<Value>(number);
}

template <class Enumeration>
    requires std::is_enum_v<Enumeration>
void read(std::int32_t number, Enumeration& value, const Path& path) {
    if (number < 0 || number >= caseCount<Enumeration>)
        path.refuse("is " + std::to_string(number) + ", which is not a known value");
    value = static_cast<Enumeration>(number);
}

/// A time that is not negative. A unit that is coarser than a millisecond is rounded up, so that a
/// short time does not become none.
template <class Rep, class Period>
void read(std::int64_t milliseconds, std::chrono::duration<Rep, Period>& value, const Path& path) {
    using Duration = std::chrono::duration<Rep, Period>;
    using std::chrono::duration_cast;
    const std::chrono::milliseconds time(milliseconds);
    if (milliseconds < 0) path.refuse("is negative");
    if constexpr (std::ratio_less_v<Period, std::milli>)
        if (time > duration_cast<std::chrono::milliseconds>(Duration::max()))
            path.refuse("is out of range");
    value = std::chrono::ceil<Duration>(time);
}

/// The service's time, to the microsecond.
inline void read(kestrin_optional_int64 microseconds, std::optional<KestrinProfile::Date>& value,
                 const Path& /*path*/) {
    value.reset();
    if (microseconds.present) value.emplace(std::chrono::microseconds(microseconds.value));
}

/// The size that a structure says it has.
template <class Structure>
[[nodiscard]] std::size_t sizeOf(const Structure* given) noexcept {
    std::size_t size = 0;
    std::memcpy(&size, given, sizeof size);
    return size;
}

/// What is known of a structure of at least its first version; later members may be there, too.
/// @param missing  has the members that an earlier version lacks
template <class Structure>
[[nodiscard]] Structure knownPart(const Structure* given, const Path& path,
                                  Structure missing = {}) {
    if (given == nullptr) path.refuse("is NULL");
    const std::size_t size = sizeOf(given);
    if (size < firstSize<Structure>)
        path.refuse("has the size " + std::to_string(size) + "; set it to sizeof the structure");
    std::memcpy(&missing, given, std::min(size, sizeof missing));
    return missing;
}

/// Refuses what is set behind the known part of a structure.
template <class Structure>
void requireAllKnown(const Structure* given, const Path& path) {
    const std::size_t size = sizeOf(given);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(given);
    if (size > sizeof(Structure) &&
        std::any_of(bytes + sizeof(Structure), bytes + size, [](auto byte) { return byte != 0; }))
        path.refuse("sets a member that this version of the library does not know");
}

/// A structure of at least its first version, the rest of it zero.
template <class Structure>
[[nodiscard]] Structure sized(const Structure* given, const Path& path, Structure missing = {}) {
    const Structure known = knownPart(given, path, missing);
    requireAllKnown(given, path);
    return known;
}

template <class Structure, class Record>
    requires HasFields<Structure, Record>
void readFields(const Structure& structure, Record& record, const Path& path) {
    std::apply(
        [&](const auto&... field) {
            (read(std::invoke(field.member, structure), std::invoke(field.value, record),
                  Path(path, field.name)),
             ...);
        },
        Fields<Structure, Record>::row);
}

template <class Structure, class Record>
    requires HasFields<Structure, Record>
void read(const Structure* given, Record& record, const Path& path) {
    readFields(sized(given, path), record, path);
}

/// A record that may be absent: a pointer that may be null.
template <class Structure, class Record>
    requires HasFields<Structure, Record>
void read(const Structure* given, std::optional<Record>& record, const Path& path) {
    record.reset();
    if (given != nullptr) read(given, record.emplace(blank<Record>()), path);
}

/// An array whose elements say how far they are apart.
template <class Array, class Record>
    requires requires(const Array& array) { array.stride; }
void read(const Array& array, std::vector<Record>& records, const Path& path) {
    using Structure = std::remove_cvref_t<decltype(*array.first)>;
    records.clear();
    if (array.count == 0) return;
    if (array.first == nullptr) path.refuse("has a count, but no elements");
    if (array.stride < firstSize<Structure> || array.stride % alignof(Structure) != 0)
        path.refuse("has the stride " + std::to_string(array.stride) +
                    "; set it to sizeof the elements");
    const auto* const bytes = reinterpret_cast<const char*>(array.first);
    for (std::size_t index = 0; index < array.count; ++index)
        read(reinterpret_cast<const Structure*>(bytes + index * array.stride),
             records.emplace_back(blank<Record>()), Path(path, index));
}

/// The same; no element at all is absence.
template <class Array, class Record>
    requires requires(const Array& array) { array.stride; }
void read(const Array& array, std::optional<std::vector<Record>>& records, const Path& path) {
    records.reset();
    if (array.first == nullptr && array.count == 0) return;
    std::vector<Record> some;  // `records.emplace()` looks uninitialised to g++ 14
    read(array, some, path);
    records = std::move(some);
}

/// An array of texts or numbers.
template <class Array, class Value>
    requires requires(const Array& array) { array.first; } &&
             (!requires(const Array& array) { array.stride; })
void read(const Array& array, std::vector<Value>& values, const Path& path) {
    values.clear();
    if (array.count > 0 && array.first == nullptr) path.refuse("has a count, but no elements");
    for (std::size_t index = 0; index < array.count; ++index)
        read(array.first[index], values.emplace_back(), Path(path, index));
}

/// What an argument of the interface says.
template <class Record, class Structure>
[[nodiscard]] Record readAs(const Structure* given, const char* name) {
    Record record = blank<Record>();
    read(given, record, Path(name));
    return record;
}

[[nodiscard]] inline std::string readText(kestrin_text text, const char* name) {
    std::string value;
    read(text, value, Path(name));
    return value;
}

// ---- Laying out for C -------------------------------------------------------------------------

[[nodiscard]] inline kestrin_text shown(std::string_view text) noexcept {
    return {text.data() == nullptr ? "" : text.data(), text.size()};
}

inline void show(const std::string& value, kestrin_text& text, Arena& /*arena*/) noexcept {
    text = shown(value);
}

inline void show(const std::optional<std::string>& value, kestrin_text& text,
                 Arena& /*arena*/) noexcept {
    text = value ? shown(*value) : kestrin_text{};
}

template <class Value, class Number>
    requires std::is_arithmetic_v<Value> && std::is_arithmetic_v<Number>
void show(Value value, Number& number, Arena& /*arena*/) noexcept {
    number = static_cast<Number>(value);
}

template <class Enumeration>
    requires std::is_enum_v<Enumeration>
void show(Enumeration value, std::int32_t& number, Arena& /*arena*/) noexcept {
    number = static_cast<std::int32_t>(value);
}

template <class Rep, class Period>
void show(std::chrono::duration<Rep, Period> value, std::int64_t& milliseconds,
          Arena& /*arena*/) noexcept {
    milliseconds = std::chrono::ceil<std::chrono::milliseconds>(value).count();
}

/// The service's time, to the microsecond.
inline void show(const std::optional<KestrinProfile::Date>& value,
                 kestrin_optional_int64& microseconds, Arena& /*arena*/) noexcept {
    microseconds = {value.has_value(), value ? value->time_since_epoch().count() : 0};
}

/// The device's clock, to the millisecond.
inline void show(KestrinHousehold::Scheduler::WallTime value, std::int64_t& milliseconds,
                 Arena& /*arena*/) noexcept {
    milliseconds = std::chrono::floor<std::chrono::milliseconds>(value).time_since_epoch().count();
}

template <class Value, class Member>
    requires requires(Member& member) { member.present; }
void show(const std::optional<Value>& value, Member& member, Arena& arena) noexcept {
    member.present = value.has_value();
    if (value) show(*value, member.value, arena);
}

template <class Record, class Structure>
    requires HasFields<Structure, Record>
void show(const Record& record, Structure& structure, Arena& arena) {
    structure.size = sizeof structure;
    std::apply(
        [&](const auto&... field) {
            (show(std::invoke(field.value, record), std::invoke(field.member, structure), arena),
             ...);
        },
        Fields<Structure, Record>::row);
}

/// A record that C sees through a pointer.
template <class Record, class Structure>
    requires HasFields<Structure, Record>
void show(const Record& record, const Structure*& place, Arena& arena) {
    Structure structure{};
    show(record, structure, arena);
    place = arena.keep(structure);
}

template <class Record, class Structure>
    requires HasFields<Structure, Record>
void show(const std::optional<Record>& record, const Structure*& place, Arena& arena) {
    place = nullptr;
    if (record) show(*record, place, arena);
}

template <class Record, class Array>
    requires requires(Array& array) { array.stride; }
void show(const std::vector<Record>& records, Array& array, Arena& arena) {
    using Structure = std::remove_cvref_t<decltype(*array.first)>;
    std::vector<Structure> all(records.size());
    for (std::size_t index = 0; index < records.size(); ++index)
        show(records[index], all[index], arena);
    array.count = all.size();
    array.stride = sizeof(Structure);
    array.first = all.empty() ? nullptr : arena.keep(std::move(all))->data();
}

template <class Array, class Value>
    requires requires(Array& array) { array.first; } && (!requires(Array& array) { array.stride; })
void show(const std::vector<Value>& values, Array& array, Arena& arena) {
    using Element = std::remove_cvref_t<decltype(*array.first)>;
    std::vector<Element> all(values.size());
    for (std::size_t index = 0; index < values.size(); ++index)
        show(values[index], all[index], arena);
    array.count = all.size();
    array.first = all.empty() ? nullptr : arena.keep(std::move(all))->data();
}

}  // namespace KestrinC::internal
