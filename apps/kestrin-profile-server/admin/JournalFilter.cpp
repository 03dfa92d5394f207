#include <algorithm>
#include <array>

#include <boost/json.hpp>

#include <internal/ASCII.hpp>
#include <internal/Number.hpp>
#include <kestrin-profile-server/admin/Journal.hpp>
#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/http/Redaction.hpp>
#include <kestrin-profile-server/http/Reply.hpp>
#include <kestrin-profile-server/http/Request.hpp>
#include <kestrin-profile-server/http/RequestFacts.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

/// What an entry has in a field; absent: nothing.
using Actual = std::optional<std::string>;

std::optional<std::string> unlessEmpty(std::string_view text) {
    return text.empty() ? std::nullopt : std::optional(std::string(text));
}

RequestFacts factsOf(const JournalEntry& entry) {
    return requestFacts(entry.exchange->method, entry.exchange->target);
}

Actual operationOf(const JournalEntry& entry) {
    return unlessEmpty(factsOf(entry).operation());
}
Actual profileOf(const JournalEntry& entry) {
    return factsOf(entry).profile;
}
Actual householdOf(const JournalEntry& entry) {
    return unlessEmpty(entry.exchange->household);
}
Actual itemOf(const JournalEntry& entry) {
    return factsOf(entry).item;
}
Actual methodOf(const JournalEntry& entry) {
    return entry.exchange->method;
}
Actual entryPathOf(const JournalEntry& entry) {
    return std::string(pathOf(entry.exchange->target));
}
Actual statusOf(const JournalEntry& entry) {
    const auto& status = entry.exchange->status;
    return status ? std::optional(std::to_string(*status)) : std::nullopt;
}
Actual problemOf(const JournalEntry& entry) {
    return unlessEmpty(entry.exchange->problem);
}

Actual bodiesOf(const JournalEntry& entry) {
    return unlessEmpty(withoutSecrets(entry.requestBody.text()) + "\n" +
                       withoutSecrets(entry.replyBody.text()));
}

bool equals(const std::string& wanted, const std::string& actual) {
    return wanted == actual;
}
bool isStatus(const std::string& wanted, const std::string& actual) {
    return wanted == actual || (wanted.ends_with("xx") && wanted.front() == actual.front());
}
bool isProblem(const std::string& wanted, const std::string& actual) {
    return wanted == actual || wanted == problemType(actual);
}
bool isPart(const std::string& wanted, const std::string& actual) {
    return actual.find(wanted) != std::string::npos;
}

struct FilterField {
    std::string_view name;
    std::optional<std::string> JournalFilter::* wanted;
    Actual (*actual)(const JournalEntry&);
    bool (*fits)(const std::string& wanted, const std::string& actual);
};

constexpr std::array<FilterField, 9> filterFields{{
    {"operation", &JournalFilter::operation, operationOf, equals},
    {"profile", &JournalFilter::profile, profileOf, equals},
    {"household", &JournalFilter::household, householdOf, equals},
    {"item", &JournalFilter::item, itemOf, equals},
    {"method", &JournalFilter::method, methodOf, equals},
    {"path", &JournalFilter::path, entryPathOf, equals},
    {"status", &JournalFilter::status, statusOf, isStatus},
    {"problem", &JournalFilter::problem, problemOf, isProblem},
    {"bodyContains", &JournalFilter::bodyContains, bodiesOf, isPart},
}};

constexpr std::string_view sinceName = "since";

bool fits(const FilterField& field, const JournalFilter& filter, const JournalEntry& entry) {
    const auto& wanted = filter.*field.wanted;
    if (!wanted) return true;
    const Actual actual = field.actual(entry);
    return actual && field.fits(*wanted, *actual);
}

bool isStatusText(std::string_view text) {
    const auto isDigit = KestrinInternal::isDigit;
    return text.size() == 3 && isDigit(text[0]) &&
           (text.substr(1) == "xx" || (isDigit(text[1]) && isDigit(text[2])));
}

[[noreturn]] void refuseValue(std::string_view name, const std::string& value,
                              const char* expected) {
    throw Problem(ProblemKind::invalidRequest,
                  std::string(name) + " is '" + excerptOf(value) + "'; expected is " + expected);
}

std::vector<const FilterField*> differencesOf(const JournalFilter& filter,
                                              const JournalEntry& entry) {
    std::vector<const FilterField*> differences;
    for (const FilterField& field : filterFields)
        if (!fits(field, filter, entry)) differences.push_back(&field);
    return differences;
}

json::value valueOf(const Actual& text) {
    return text ? json::value(excerptOf(*text, 400)) : json::value(nullptr);
}

constexpr std::size_t mostNearMisses = 3;

json::array nearMisses(const Journal::Entries& entries, const JournalFilter& filter) {
    struct Miss {
        const JournalEntry* entry;
        std::vector<const FilterField*> differences;
    };
    std::vector<Miss> misses;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (entry->id <= filter.since) continue;
        auto differences = differencesOf(filter, *entry);
        if (differences.empty()) continue;
        const auto place =
            std::ranges::upper_bound(misses, differences.size(), {},
                                     [](const Miss& miss) { return miss.differences.size(); });
        misses.insert(place, {&*entry, std::move(differences)});
        if (misses.size() > mostNearMisses) misses.pop_back();
    }
    json::array result;
    for (const Miss& miss : misses) {
        json::array differences;
        for (const FilterField* const field : miss.differences) {
            differences.push_back({{"field", field->name},
                                   {"expected", valueOf(filter.*field->wanted)},
                                   {"actual", valueOf(field->actual(*miss.entry))}});
        }
        result.push_back({{"entry", summaryJSON(*miss.entry)}, {"differences", differences}});
    }
    return result;
}

}  // namespace

bool setInFilter(JournalFilter& filter, std::string_view name, const std::string& value) {
    if (name == sinceName) {
        const auto number = KestrinInternal::decimalNumber(value);
        if (!number) refuseValue(name, value, "the id of an entry");
        filter.since = *number;
        return true;
    }
    const auto* const field = std::ranges::find(filterFields, name, &FilterField::name);
    if (field == filterFields.end()) return false;
    if (field->fits == isStatus && !isStatusText(value))
        refuseValue(name, value, "a status like 204, or a class of them like 4xx");
    filter.*field->wanted = value;
    return true;
}

std::vector<std::string_view> filterMembers() {
    std::vector<std::string_view> names;
    names.reserve(filterFields.size() + 1);
    for (const FilterField& field : filterFields)
        names.push_back(field.name);
    names.push_back(sinceName);
    return names;
}

bool matches(const JournalFilter& filter, const JournalEntry& entry) {
    return entry.id > filter.since &&
           std::ranges::all_of(
               filterFields, [&](const FilterField& field) { return fits(field, filter, entry); });
}

json::object verified(const Journal::Entries& entries, const JournalFilter& filter,
                      const JournalExpectation& expectation) {
    using Bound = JournalExpectation::Bound;
    const auto count = static_cast<std::size_t>(std::ranges::count_if(
        entries, [&](const JournalEntry& entry) { return matches(filter, entry); }));
    const bool isTooFew = count < expectation.count && expectation.bound != Bound::atMost;
    const bool isTooMany = count > expectation.count && expectation.bound != Bound::atLeast;
    constexpr std::array<std::string_view, 3> names{"exactly ", "at least ", "at most "};
    return {{"satisfied", !isTooFew && !isTooMany},
            {"count", count},
            {"expected", std::string(names.at(static_cast<std::size_t>(expectation.bound))) +
                             std::to_string(expectation.count)},
            {"nearMisses", isTooFew ? nearMisses(entries, filter) : json::array()}};
}

}  // namespace KestrinProfileServer
