#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include <boost/json.hpp>

#include <internal/Quoting.hpp>
#include <internal/Table.hpp>
#include <kestrin-profile-server/admin/Faults.hpp>
#include <kestrin-profile-server/admin/KnownMembers.hpp>
#include <kestrin-profile-server/domain/Members.hpp>
#include <kestrin-profile-server/http/Routes.hpp>

namespace KestrinProfileServer {
namespace {

namespace json = boost::json;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::int64_t longestDelay = 3'600'000;
constexpr std::int64_t largestSkew = 3'155'760'000;
constexpr std::int64_t mostBytes = std::int64_t{1} << 40;
constexpr std::int64_t largestNumber = std::int64_t{1} << 53;

/// What a kind of action needs, both ways.
struct KindRow {
    FaultKind kind;
    std::string_view name;
    void (*read)(FaultAction&, const json::value&, const std::string& place);
    void (*write)(const FaultAction&, json::object&);
};

void readNothing(FaultAction&, const json::value& value, const std::string& place) {
    static_cast<void>(KnownMembers(value, place, {"kind"}));
}
void writeNothing(const FaultAction&, json::object&) {}

/// Seconds, or a date as HTTP writes it.
std::string retryAfterIn(const KnownMembers& members) {
    const json::value* const value = members.find("retryAfter");
    if (value == nullptr) return "";
    if (value->is_string()) return std::string(value->get_string());
    return std::to_string(members.requiredInteger("retryAfter", 0, largestNumber));
}

void readStatus(FaultAction& action, const json::value& value, const std::string& place) {
    const KnownMembers members(value, place,
                               {"kind", "status", "retryAfter", "contentType", "body"});
    action.status = static_cast<unsigned>(members.requiredInteger("status", 200, 599));
    action.retryAfter = retryAfterIn(members);
    action.contentType = members.text("contentType").value_or("");
    action.body = members.text("body");
}
void writeStatus(const FaultAction& action, json::object& object) {
    object["status"] = action.status;
    if (!action.retryAfter.empty()) object["retryAfter"] = action.retryAfter;
    if (!action.contentType.empty()) object["contentType"] = action.contentType;
    if (action.body) object["body"] = *action.body;
}

void readDelay(FaultAction& action, const json::value& value, const std::string& place) {
    const KnownMembers members(value, place, {"kind", "milliseconds", "jitterMilliseconds"});
    action.delay = milliseconds(members.requiredInteger("milliseconds", 0, longestDelay));
    action.jitter =
        milliseconds(members.integer("jitterMilliseconds", 0, longestDelay).value_or(0));
}
void writeDelay(const FaultAction& action, json::object& object) {
    object["milliseconds"] = action.delay.count();
    if (action.jitter.count() > 0) object["jitterMilliseconds"] = action.jitter.count();
}

void readThrottle(FaultAction& action, const json::value& value, const std::string& place) {
    const KnownMembers members(value, place, {"kind", "bytesPerSecond"});
    action.bytes =
        static_cast<std::size_t>(members.requiredInteger("bytesPerSecond", 1, mostBytes));
}
void writeThrottle(const FaultAction& action, json::object& object) {
    object["bytesPerSecond"] = action.bytes;
}

void readTruncate(FaultAction& action, const json::value& value, const std::string& place) {
    const KnownMembers members(value, place, {"kind", "bytes"});
    action.bytes = static_cast<std::size_t>(members.requiredInteger("bytes", 0, mostBytes));
}
void writeTruncate(const FaultAction& action, json::object& object) {
    object["bytes"] = action.bytes;
}

void readContentType(FaultAction& action, const json::value& value, const std::string& place) {
    action.contentType =
        KnownMembers(value, place, {"kind", "contentType"}).requiredText("contentType");
}
void writeContentType(const FaultAction& action, json::object& object) {
    object["contentType"] = action.contentType;
}

void readSkew(FaultAction& action, const json::value& value, const std::string& place) {
    action.skew = seconds(KnownMembers(value, place, {"kind", "seconds"})
                              .requiredInteger("seconds", -largestSkew, largestSkew));
}
void writeSkew(const FaultAction& action, json::object& object) {
    object["seconds"] = action.skew.count();
}

constexpr std::array<KindRow, 13> kindRows{{
    {FaultKind::status, "status", readStatus, writeStatus},
    {FaultKind::delay, "delay", readDelay, writeDelay},
    {FaultKind::throttle, "throttle", readThrottle, writeThrottle},
    {FaultKind::refuse, "refuse", readNothing, writeNothing},
    {FaultKind::resetBefore, "resetBefore", readNothing, writeNothing},
    {FaultKind::resetAfter, "resetAfter", readNothing, writeNothing},
    {FaultKind::resetMiddle, "resetMiddle", readNothing, writeNothing},
    {FaultKind::truncate, "truncate", readTruncate, writeTruncate},
    {FaultKind::malformed, "malformed", readNothing, writeNothing},
    {FaultKind::contentType, "contentType", readContentType, writeContentType},
    {FaultKind::expiredToken, "expiredToken", readNothing, writeNothing},
    {FaultKind::revokedToken, "revokedToken", readNothing, writeNothing},
    {FaultKind::clockSkew, "clockSkew", readSkew, writeSkew},
}};
static_assert(KestrinInternal::isInOrder(kindRows, &KindRow::kind));

/// Whether a text may be the value of a header.
bool isHeaderValue(std::string_view text) {
    return std::ranges::all_of(text, [](char each) { return each >= ' ' && each <= '~'; });
}

FaultAction parsedAction(const json::value& value, const std::string& place) {
    const json::object* const object = value.if_object();
    const json::value* const kind = object == nullptr ? nullptr : object->if_contains("kind");
    const auto row = std::ranges::find_if(kindRows, [&](const KindRow& each) {
        return kind != nullptr && kind->is_string() && each.name == kind->get_string();
    });
    if (row == kindRows.end()) {
        std::vector<std::string_view> names;
        names.reserve(kindRows.size());
        for (const KindRow& each : kindRows)
            names.push_back(each.name);
        throw Problem(ProblemKind::invalidRequest,
                      place + ".kind is none; known are " + KestrinInternal::listInQuotes(names));
    }
    FaultAction action;
    action.kind = row->kind;
    row->read(action, value, place);
    if (!isHeaderValue(action.contentType) || !isHeaderValue(action.retryAfter)) {
        throw Problem(ProblemKind::invalidRequest,
                      place + " has a header value with other than visible ASCII characters");
    }
    return action;
}

void checkOperation(const std::optional<std::string>& name, const std::string& place) {
    if (!name) return;
    std::vector<std::string_view> names;
    for (const Route& route : routes())
        names.push_back(route.operation);
    if (std::ranges::find(names, *name) != names.end()) return;
    throw Problem(ProblemKind::invalidRequest, place + ".operation is none of the protocol" +
                                                   KestrinInternal::suggestion(*name, names));
}

bool isToken(FaultKind kind) {
    return kind == FaultKind::expiredToken || kind == FaultKind::revokedToken;
}

/// Whether the kind decides what is answered; of those only one can act.
bool isOutcome(FaultKind kind) {
    return kind != FaultKind::delay && kind != FaultKind::throttle && kind != FaultKind::clockSkew;
}

bool isOrAny(const std::optional<std::string>& wanted, const std::optional<std::string>& actual) {
    return !wanted || wanted == actual;
}

}  // namespace

std::string_view faultName(FaultKind kind) {
    return KestrinInternal::rowOf(kindRows, kind).name;
}

bool Faults::Rule::concerns(const FaultSubject& subject, Milliseconds now) const {
    if (count && used >= *count) return false;
    if (until && now >= *until) return false;
    if (operation && *operation != subject.operation) return false;
    if (method && *method != subject.method) return false;
    if (isToken(action.kind) && !subject.hasToken) return false;
    return isOrAny(profile, subject.profile) && (!household || household == subject.household());
}

/// From 0 to below 1, the same on every computer.
double Faults::Rule::draw() {
    return static_cast<double>(chance() >> 11U) * 0x1p-53;
}

void Faults::Rule::act(FaultVerdict& verdict) {
    ++used;
    if (isOutcome(action.kind)) {
        verdict.outcome = action;
        verdict.fault = id;
        return;
    }
    if (!verdict.fault) verdict.fault = id;
    verdict.skew += action.skew;
    if (action.kind == FaultKind::delay) {
        const double jitter = draw() * static_cast<double>(action.jitter.count() + 1);
        verdict.delay += action.delay + milliseconds(static_cast<std::int64_t>(jitter));
    }
    if (action.kind == FaultKind::throttle)
        verdict.bytesPerSecond =
            std::min(verdict.bytesPerSecond.value_or(action.bytes), action.bytes);
}

FaultVerdict Faults::verdictOn(const FaultSubject& subject, Milliseconds now) {
    FaultVerdict verdict;
    const auto state = state_.lock();
    for (Rule& rule : state->rules) {
        if (verdict.outcome && isOutcome(rule.action.kind)) continue;
        if (rule.concerns(subject, now) && rule.draw() < rule.probability) rule.act(verdict);
    }
    return verdict;
}

Faults::Rule Faults::parsed(const json::value& value, const std::string& place) {
    const KnownMembers members(
        value, place,
        {"id", "name", "when", "probability", "seed", "count", "until", "used", "action"});
    const auto seed = members.integer("seed", 0, largestNumber);
    Rule rule(seed ? static_cast<std::uint64_t>(*seed) : (*unseeded_.lock())());
    rule.name = members.text("name");
    if (const json::value* const when = members.find("when")) {
        const KnownMembers conditions(*when, place + ".when",
                                      {"operation", "profile", "household", "method"});
        rule.operation = conditions.text("operation");
        checkOperation(rule.operation, conditions.place());
        rule.profile = conditions.text("profile");
        rule.household = conditions.text("household");
        rule.method = conditions.text("method");
    }
    rule.probability = members.number("probability", 0, 1).value_or(1);
    rule.seed = seed;
    rule.count = members.integer("count", 1, largestNumber);
    if (const auto until = members.text("until")) {
        rule.until = timeIn(*until);
        if (!rule.until) members.refuse("until", "a time like 2017-03-09T18:25:43.511Z");
    }
    const json::value* const action = members.find("action");
    if (action == nullptr) members.refuse("action", "an object with a kind");
    rule.action = parsedAction(*action, place + ".action");
    return rule;
}

json::array Faults::add(const json::value& body) {
    std::vector<Rule> rules;
    const json::object* const object = body.if_object();
    if (object != nullptr && object->contains("faults")) {
        const KnownMembers members(body, "the body", {"faults"});
        const json::value* const list = members.find("faults");
        if (list == nullptr || !list->is_array()) members.refuse("faults", "an array of faults");
        for (const json::value& each : list->get_array())
            rules.push_back(parsed(each, "the body.faults[" + std::to_string(rules.size()) + "]"));
    } else {
        rules.push_back(parsed(body, "the body"));
    }
    json::array added;
    const auto state = state_.lock();
    for (Rule& rule : rules) {
        rule.id = ++state->lastID;
        added.push_back(json(rule));
        state->rules.push_back(std::move(rule));
    }
    areSet_ = !state->rules.empty();
    return added;
}

json::array Faults::all() const {
    json::array rules;
    const auto state = state_.lock();
    for (const Rule& rule : state->rules)
        rules.push_back(json(rule));
    return rules;
}

std::size_t Faults::count() const {
    return state_.lock()->rules.size();
}

void Faults::clear() {
    const auto state = state_.lock();
    state->rules.clear();
    areSet_ = false;
}

bool Faults::remove(std::int64_t id) {
    const auto state = state_.lock();
    const auto removed =
        std::erase_if(state->rules, [id](const Rule& rule) { return rule.id == id; });
    areSet_ = !state->rules.empty();
    return removed > 0;
}

json::object Faults::json(const Rule& rule) {
    const auto orNull = [](const auto& value) {
        return value ? json::value(*value) : json::value(nullptr);
    };
    json::object when;
    const auto addCondition = [&when](std::string_view name, const auto& value) {
        if (value) when[name] = *value;
    };
    addCondition("operation", rule.operation);
    addCondition("profile", rule.profile);
    addCondition("household", rule.household);
    addCondition("method", rule.method);
    json::object action{{"kind", faultName(rule.action.kind)}};
    KestrinInternal::rowOf(kindRows, rule.action.kind).write(rule.action, action);
    return {{"id", rule.id},
            {"name", orNull(rule.name)},
            {"when", std::move(when)},
            {"probability", rule.probability},
            {"seed", orNull(rule.seed)},
            {"count", orNull(rule.count)},
            {"until", rule.until ? json::value(timestampText(*rule.until)) : json::value(nullptr)},
            {"used", rule.used},
            {"action", std::move(action)}};
}

}  // namespace KestrinProfileServer
