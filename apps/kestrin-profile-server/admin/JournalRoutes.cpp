#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <span>

#include <boost/json.hpp>

#include <internal/Number.hpp>
#include <kestrin-profile-server/admin/Journal.hpp>
#include <kestrin-profile-server/admin/KnownMembers.hpp>
#include <kestrin-profile-server/admin/RouteTables.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;

constexpr std::array<std::string_view, 12> listParameters{
    "operation", "profile", "household", "item",         "method", "path",
    "status",    "problem", "since",     "bodyContains", "limit",  "order"};
/// The same without what only a list has.
constexpr std::span<const std::string_view> filterParameters =
    std::span(listParameters).first<10>();
constexpr std::size_t usualLimit = 100;
constexpr std::int64_t largestLimit = 100'000;
constexpr std::int64_t longestWait = 3600;
constexpr double usualWait = 10;

Journal& journalOf(const AdminContext& context) {
    return context.space.observation().journal();
}

Problem invalid(const std::string& detail) {
    return {ProblemKind::invalidRequest, detail};
}

/// A member of a filter as text; it may be a number.
std::string filterText(const KnownMembers& members, std::string_view name) {
    const json::value* const value = members.find(name);
    if (value->is_int64()) return std::to_string(value->get_int64());
    return *members.text(name);
}

/// The filter in a body that may have these members, too.
JournalFilter filterIn(const KnownMembers& members) {
    JournalFilter filter;
    for (const std::string_view name : filterMembers())
        if (members.find(name) != nullptr) setInFilter(filter, name, filterText(members, name));
    return filter;
}

JournalFilter filterInQuery(const AdminCall& call) {
    JournalFilter filter;
    for (const auto& [name, value] : call.query)
        setInFilter(filter, name, value);
    return filter;
}

std::int64_t numberIn(const std::string& text, std::string_view name, std::int64_t most) {
    const auto number = KestrinInternal::decimalNumber(text);
    if (number && *number <= most) return *number;
    throw invalid("the parameter '" + std::string(name) + "' is '" + excerptOf(text) +
                  "'; expected is a number up to " + std::to_string(most));
}

bool isOldestFirst(const AdminCall& call) {
    const std::string order = call.parameter("order").value_or("newest");
    if (order == "newest" || order == "oldest") return order == "oldest";
    throw invalid("the parameter 'order' is '" + excerptOf(order) +
                  "'; expected is newest or oldest");
}

Reply listEntries(const AdminContext& context) {
    const JournalFilter filter = filterInQuery(context.call);
    const bool isOldest = isOldestFirst(context.call);
    const auto limit = context.call.parameter("limit");
    const std::size_t most =
        limit ? static_cast<std::size_t>(numberIn(*limit, "limit", largestLimit)) : usualLimit;
    Journal::Entries found = journalOf(context).entries();
    std::erase_if(found, [&](const JournalEntry& entry) { return !matches(filter, entry); });
    if (!isOldest) std::ranges::reverse(found);
    json::array entries;
    for (std::size_t index = 0; index < std::min(most, found.size()); ++index)
        entries.push_back(summaryJSON(found[index]));
    return jsonReply(200, {{"entries", std::move(entries)}, {"total", found.size()}});
}

Reply getEntry(const AdminContext& context) {
    const std::string& text = context.call.segments.front();
    const auto id = KestrinInternal::decimalNumber(text);
    const auto entry = id ? journalOf(context).entry(*id) : std::nullopt;
    if (!entry) {
        throw Problem(ProblemKind::unknownItem,
                      "the journal has no entry '" + excerptOf(text) + "', or not any more");
    }
    return jsonReply(200, entryJSON(*entry));
}

Reply clearJournal(const AdminContext& context) {
    journalOf(context).clear();
    return {};
}

Reply countEntries(const AdminContext& context) {
    const KnownMembers members(context.call.requiredBody(), "the body", filterMembers());
    const JournalFilter filter = filterIn(members);
    const auto entries = journalOf(context).entries();
    return jsonReply(200, {{"count", std::ranges::count_if(entries, [&](const JournalEntry& entry) {
                                return matches(filter, entry);
                            })}});
}

std::vector<std::string_view> filterMembersAnd(std::initializer_list<std::string_view> more) {
    auto names = filterMembers();
    names.insert(names.end(), more);
    return names;
}

JournalExpectation expectationIn(const KnownMembers& members) {
    using Bound = JournalExpectation::Bound;
    constexpr std::array<std::pair<std::string_view, Bound>, 3> bounds{
        {{"exactly", Bound::exactly}, {"atLeast", Bound::atLeast}, {"atMost", Bound::atMost}}};
    std::optional<JournalExpectation> expectation;
    for (const auto& [name, bound] : bounds) {
        const auto count = members.integer(name, 0, KestrinInternal::largestExactInteger);
        if (!count) continue;
        if (expectation) throw invalid("the body has more than one of exactly, atLeast and atMost");
        expectation = JournalExpectation{bound, static_cast<std::size_t>(*count)};
    }
    if (!expectation) throw invalid("the body has none of exactly, atLeast and atMost");
    return *expectation;
}

Reply verifyEntries(const AdminContext& context) {
    const KnownMembers members(context.call.requiredBody(), "the body",
                               filterMembersAnd({"exactly", "atLeast", "atMost"}));
    return jsonReply(
        200, verified(journalOf(context).entries(), filterIn(members), expectationIn(members)));
}

void waitForEntries(const AdminContext& context, std::function<void(Reply)> done) {
    const KnownMembers members(context.call.requiredBody(), "the body",
                               filterMembersAnd({"count", "timeoutSeconds"}));
    const auto count = members.integer("count", 0, KestrinInternal::largestExactInteger);
    const double patience =
        members.number("timeoutSeconds", 0, static_cast<double>(longestWait)).value_or(usualWait);
    const std::weak_ptr<Journal::Wait> wait = journalOf(context).wait(
        filterIn(members), static_cast<std::size_t>(count.value_or(1)),
        [done = std::move(done)](bool isSatisfied, std::size_t found) {
            done(jsonReply(200, {{"satisfied", isSatisfied}, {"count", found}}));
        });
    context.afterwards(std::chrono::duration_cast<std::chrono::milliseconds>(
                           std::chrono::duration<double>(patience)),
                       [wait] {
                           if (const auto waiting = wait.lock()) waiting->expire();
                       });
}

Reply getArchive(const AdminContext& context) {
    const JournalFilter filter = filterInQuery(context.call);
    Journal::Entries found = journalOf(context).entries();
    std::erase_if(found, [&](const JournalEntry& entry) { return !matches(filter, entry); });
    Reply reply{.status = 200, .contentType = "application/json"};
    reply.pieces = archivePieces(std::move(found), context.baseURL());
    return reply;
}

constexpr std::array journalTable{
    AdminRoute{.method = "GET",
               .path = "/admin/v1/journal",
               .summary = "The requests that match, without their bodies",
               .handler = listEntries,
               .parameters = listParameters},
    AdminRoute{"DELETE", "/admin/v1/journal", "Forgets all requests", AdminEffect::none,
               clearJournal},
    AdminRoute{.method = "GET",
               .path = "/admin/v1/journal.har",
               .summary = "The requests that match as an HTTP Archive",
               .handler = getArchive,
               .parameters = filterParameters},
    AdminRoute{"GET", "/admin/v1/journal/{id}", "One request with its reply", AdminEffect::none,
               getEntry},
    AdminRoute{"POST", "/admin/v1/journal/count", "How many requests match", AdminEffect::none,
               countEntries},
    AdminRoute{"POST", "/admin/v1/journal/verify", "Whether as many requests came as expected",
               AdminEffect::none, verifyEntries},
    AdminRoute{.method = "POST",
               .path = "/admin/v1/journal/wait",
               .summary = "Answers when enough requests have come, or in time",
               .effect = AdminEffect::later,
               .laterHandler = waitForEntries},
};

}  // namespace

std::span<const AdminRoute> journalRoutes() {
    return journalTable;
}

}  // namespace KestrinProfileServer
