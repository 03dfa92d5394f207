#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <fmt/format.h>

#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <internal/ASCII.hpp>
#include <internal/Quoting.hpp>

#include "../Confirmation.hpp"
#include "../CurlCommand.hpp"
#include "../Format.hpp"
#include "../NamedValues.hpp"
#include "../Profiles.hpp"
#include "Commands.hpp"

namespace KestrinProfileCLI {

using HalvardSling::Headers;
using HalvardSling::JSONDictionary;
using HalvardSling::Response;
using HalvardSling::SlingError;
using KestrinHousehold::ProfileSession;
using KestrinInternal::inQuotes;
using KestrinInternal::suggestion;
using KestrinProfile::ProfileOperation;
using KestrinProfile::Types;
using KestrinProfile::User;
using KestrinProfile::UserProfileElement;

namespace {

/// What the command is told.
struct APIOptions {
    std::string operation;
    std::vector<std::string> fields;  ///< each NAME=VALUE
    bool isConfirmed = false;
};

constexpr const char* listOfFields = "see what each operation takes: kestrin-profile api";

[[noreturn]] void failForField(const std::string& message) {
    throw CommandError({ExitCode::usage, message, listOfFields});
}

/// The values of an operation's fields, by their names.
class FieldValues {
  public:
    explicit FieldValues(NamedValues values) : values_(std::move(values)) {}

    [[nodiscard]] bool has(const std::string& name) const { return values_.contains(name); }

    [[nodiscard]] std::optional<std::string> find(const std::string& name) const {
        const auto value = values_.find(name);
        return value == values_.end() ? std::nullopt : std::optional(value->second);
    }

    /// Of a field that has to be there.
    [[nodiscard]] std::string text(const std::string& name) const { return values_.at(name); }

    [[nodiscard]] std::optional<bool> truth(const std::string& name) const {
        const auto value = find(name);
        if (!value) return std::nullopt;
        if (*value != "true" && *value != "false")
            failForField(fmt::format("the field {} is neither true nor false", inQuotes(name)));
        return *value == "true";
    }

    [[nodiscard]] std::chrono::seconds time(const std::string& name) const {
        if (const auto seconds = durationOf(text(name))) return std::chrono::seconds(*seconds);
        failForField(
            fmt::format("the field {} is no time: give seconds, m:ss or h:mm:ss", inQuotes(name)));
    }

    [[nodiscard]] std::vector<UserProfileElement> shows(const std::string& name) const {
        std::vector<UserProfileElement> all;
        const std::string value = text(name);
        std::string_view rest = value;
        for (std::size_t comma = 0; comma != std::string_view::npos;) {
            comma = rest.find(',');
            all.emplace_back(std::string(rest.substr(0, comma)), Types::show);
            rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
        }
        return all;
    }

    /// A profile with the fields that are given.
    [[nodiscard]] User user(std::optional<std::string> profileID) const {
        User result(profileID.value_or(""), find("name"), find("avatar"), find("group"),
                    truth("default").value_or(false));
        result.profileID = std::move(profileID);
        return result;
    }

  private:
    NamedValues values_;
};

using Names = std::vector<std::string_view>;

/// The words of a text.
Names wordsOf(std::string_view text) {
    Names words;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        words.push_back(text.substr(0, end));
        text.remove_prefix(std::min(text.size(), end + 1));
    }
    return words;
}

/// Waits for what an operation emits; what was answered is in the recording.
template <class T>
void carryOut(Session& session, const HalvardSling::Observable<T>& operation) {
    static_cast<void>(session.waitFor(operation));
}

/// What an operation is about, and so what it needs.
enum class OperationKind {
    household,   ///< profiles
    list,        ///< what has a brand
    destroying,  ///< is asked about first
};

struct Operation {
    ProfileOperation operation;
    OperationKind kind;
    std::string_view required;  ///< names of fields, with blanks between them
    std::string_view optional;
    void (*send)(Session& session, const ProfileSession& acting, const FieldValues& values);
};

// clang-format off
constexpr std::array operations{
    Operation{ProfileOperation::anonymousBind, OperationKind::household, "", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& /*values*/) {
                  carryOut(session, acting.renewBind()); }},
    Operation{ProfileOperation::validate, OperationKind::list, "name", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.validateProfileName(values.text("name"))); }},
    Operation{ProfileOperation::createProfile, OperationKind::household,
              "name", "avatar group default",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.createProfile(values.user({}))); }},
    Operation{ProfileOperation::getProfiles, OperationKind::household, "", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& /*values*/) {
                  carryOut(session, acting.profiles()); }},
    Operation{ProfileOperation::editProfile, OperationKind::household,
              "profile", "name avatar group default",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.editProfile(values.user(values.text("profile")))); }},
    Operation{ProfileOperation::deleteProfile, OperationKind::destroying, "profile", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.deleteProfile(values.text("profile"))); }},
    Operation{ProfileOperation::getHistory, OperationKind::list, "", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& /*values*/) {
                  carryOut(session, acting.history()); }},
    Operation{ProfileOperation::getVideoProgress, OperationKind::list, "video", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.videoHistory(values.text("video"))); }},
    Operation{ProfileOperation::addVideoToHistory, OperationKind::list,
              "video progress", "completed",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.addHistoryVideo(values.text("video"),
                                                           values.time("progress"),
                                                           values.truth("completed"))); }},
    Operation{ProfileOperation::removeVideoFromHistory, OperationKind::list, "video", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.deleteVideoHistory(values.text("video"))); }},
    Operation{ProfileOperation::clearHistory, OperationKind::destroying, "", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& /*values*/) {
                  carryOut(session, acting.clearHistory()); }},
    Operation{ProfileOperation::getFavorites, OperationKind::list, "", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& /*values*/) {
                  carryOut(session, acting.favorites()); }},
    Operation{ProfileOperation::addFavoriteShow, OperationKind::list, "show", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.addFavoriteShow(values.text("show"))); }},
    Operation{ProfileOperation::addFavoriteShows, OperationKind::list, "shows", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.addFavoriteShows(values.shows("shows"))); }},
    Operation{ProfileOperation::removeFavoriteShow, OperationKind::list, "show", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.deleteFavoriteShow(values.text("show"))); }},
    Operation{ProfileOperation::clearFavorites, OperationKind::destroying, "", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& /*values*/) {
                  carryOut(session, acting.clearFavorites()); }},
    Operation{ProfileOperation::getWatchList, OperationKind::list, "", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& /*values*/) {
                  carryOut(session, acting.watchList()); }},
    Operation{ProfileOperation::addVideoToWatchList, OperationKind::list, "video", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.addWatchListVideo(values.text("video"))); }},
    Operation{ProfileOperation::removeFromWatchList, OperationKind::list, "video", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.deleteWatchListVideo(values.text("video"))); }},
    Operation{ProfileOperation::clearWatchList, OperationKind::destroying, "", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& /*values*/) {
                  carryOut(session, acting.clearWatchList()); }},
    Operation{ProfileOperation::addSearchHistory, OperationKind::list, "search", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& values) {
                  carryOut(session, acting.addSearchHistory(values.text("search"))); }},
    Operation{ProfileOperation::deleteSearchHistory, OperationKind::destroying, "", "",
              [](Session& session, const ProfileSession& acting, const FieldValues& /*values*/) {
                  carryOut(session, acting.deleteSearchHistory()); }},
};
// clang-format on

const Operation& operationOf(const std::string& name) {
    const auto known = KestrinProfile::profileOperation(name);
    if (known) {
        const auto found = std::ranges::find(operations, *known, &Operation::operation);
        if (found != operations.end()) return *found;
    }
    Names names;
    for (const auto& each : operations)
        names.push_back(rawValue(each.operation));
    throw CommandError(
        {ExitCode::usage,
         fmt::format("unknown operation {}{}", inQuotes(name), suggestion(name, names)),
         "see all of them: kestrin-profile api"});
}

FieldValues valuesOf(const Operation& operation, const std::vector<std::string>& fields) {
    const Names required = wordsOf(operation.required);
    Names known = required;
    std::ranges::copy(wordsOf(operation.optional), std::back_inserter(known));
    FieldValues values(namedValuesOf(fields, rawValue(operation.operation), known, listOfFields));
    for (const auto name : required)
        if (!values.has(std::string(name)))
            failForField(fmt::format("the field {} is missing", inQuotes(name)));
    return values;
}

// What was sent and answered.

constexpr std::string_view masked = "***";

std::string shownRequestHeader(std::string_view name, std::string_view value) {
    const bool isPublic =
        isPublicHeader(name) || Headers::sameName(name, HalvardSling::requestIDHeader);
    return std::string(isPublic ? value : masked);
}

std::string shownReplyHeader(std::string_view name, std::string_view value) {
    return std::string(Headers::sameName(name, "Set-Cookie") ? masked : value);
}

using ShownHeader = std::string (*)(std::string_view name, std::string_view value);

/// A JSON text, written compactly, with every token in it masked, however deep it stands. In such a
/// text no value can look like a key, because its quotes are escaped.
std::string withoutTokens(Session& session, std::string json) {
    static const std::string key =
        inQuotes(KestrinConfigManager::AnonymousBind::Keys::token) + ":\"";
    for (std::size_t at = 0; (at = json.find(key, at)) != std::string::npos;) {
        at += key.size();
        std::size_t end = at;
        while (json[end] != '"')
            end += json[end] == '\\' ? 2 : 1;
        session.terminal.hide(json.substr(at, end - at));
        json.replace(at, end - at, masked);
    }
    return json;
}

/// A body that is a JSON object, its tokens masked; absent: it is none.
std::optional<JSONDictionary> objectOf(Session& session, std::string_view body) {
    const auto parsed = JSONDictionary::parse(body);
    const auto* const object = std::get_if<JSONDictionary>(&parsed);
    if (object == nullptr) return std::nullopt;
    auto shown = JSONDictionary::parse(withoutTokens(session, object->toJSON()));
    return std::get<JSONDictionary>(std::move(shown));
}

/// Whether an exchange is about a bind. What comes then, and is no JSON object, may be the token.
bool isAboutBind(const Exchange& exchange) {
    return exchange.request->operation == rawValue(ProfileOperation::anonymousBind);
}

/// Shows an exchange: what was sent after '>', what was answered after '<'.
class Transcript {
  public:
    explicit Transcript(Session& session) : session_(session) {}

    void print(const Exchange& exchange) const {
        const auto& request = *exchange.request;
        line('>', request.method + " " + request.url);
        printHeaders('>', request.headers, &shownRequestHeader);
        if (!request.headers.value(HalvardSling::requestIDHeader))
            line('>', fmt::format("{}: {}", HalvardSling::requestIDHeader,
                                  exchange.request.requestID()));
        if (request.body) printBody('>', *request.body, false);
        if (!exchange.result) return;
        if (const auto* const error = std::get_if<SlingError>(&*exchange.result))
            return line('<', fmt::format("no reply: {}", name(error->kind())));
        const auto& reply = std::get<Response>(*exchange.result);
        static_cast<void>(objectOf(session_, reply.body()));  // hides its tokens
        line('<', fmt::format("status {}", reply.status()));
        printHeaders('<', reply.headers(), &shownReplyHeader);
        printBody('<', reply.body(), isAboutBind(exchange));
    }

  private:
    void line(char direction, std::string_view text) const {
        session_.terminal.line(fmt::format("{} {}", direction, printable(text)));
    }

    void printHeaders(char direction, const Headers& headers, ShownHeader shown) const {
        for (const auto& [name, value] : headers)
            line(direction, fmt::format("{}: {}", name, shown(name, value)));
    }

    void printBody(char direction, std::string_view text, bool isSecret) const {
        if (text.empty()) return;
        session_.terminal.line(std::string(1, direction));
        if (const auto object = objectOf(session_, text))
            return session_.terminal.line(
                fmt::format("{} {}", direction, printableJSON(object->toJSON())));
        if (isSecret) return line(direction, masked);
        while (!text.empty()) {
            const std::size_t end = std::min(text.find('\n'), text.size());
            line(direction, text.substr(0, end));
            text.remove_prefix(std::min(text.size(), end + 1));
        }
    }

    Session& session_;
};

JSONDictionary headersAsJSON(const Headers& headers, ShownHeader shown) {
    JSONDictionary result;
    for (const auto& [name, value] : headers)
        result.setText(name, shown(name, value));
    return result;
}

void addBody(Session& session, JSONDictionary& document, std::string_view body, bool isSecret) {
    if (body.empty()) return;
    if (const auto object = objectOf(session, body))
        document.setDictionary("body", *object);
    else
        document.setText("body", isSecret ? std::string(masked) : printable(body));
}

JSONDictionary asJSON(Session& session, const Exchange& exchange) {
    const auto& sent = *exchange.request;
    JSONDictionary request;
    request.setText("method", sent.method);
    request.setText("url", sent.url);
    request.setText("requestID", exchange.request.requestID());
    request.setDictionary("headers", headersAsJSON(sent.headers, &shownRequestHeader));
    if (sent.body) addBody(session, request, *sent.body, false);
    JSONDictionary result;
    result.setDictionary("request", request);
    if (!exchange.result) return result;
    if (const auto* const error = std::get_if<SlingError>(&*exchange.result)) {
        result.setText("error", name(error->kind()));
        return result;
    }
    const auto& answered = std::get<Response>(*exchange.result);
    JSONDictionary reply;
    reply.setInteger("status", answered.status());
    reply.setDictionary("headers", headersAsJSON(answered.headers(), &shownReplyHeader));
    addBody(session, reply, answered.body(), isAboutBind(exchange));
    result.setDictionary("reply", reply);
    return result;
}

/// Shows what was sent for an operation. What was sent to obtain a bind for it is not part of it.
void print(Session& session, const Recording& recording, std::string_view operation) {
    std::vector<JSONDictionary> documents;
    for (const auto& exchange : recording.exchanges()) {
        if (exchange.request->operation != operation) continue;
        if (session.options.json)
            documents.push_back(asJSON(session, exchange));
        else
            Transcript(session).print(exchange);
    }
    if (documents.empty()) return;
    JSONDictionary result;
    result.setText("operation", operation);
    result.setDictionaries("exchanges", documents);
    session.terminal.json(result);
}

ExitCode printOperations(const Session& session) {
    if (session.options.json) {
        std::vector<JSONDictionary> documents;
        for (const auto& each : operations) {
            const auto required = wordsOf(each.required);
            const auto optional = wordsOf(each.optional);
            JSONDictionary& document = documents.emplace_back();
            document.setText("operation", rawValue(each.operation));
            document.setTexts("required", {required.begin(), required.end()});
            document.setTexts("optional", {optional.begin(), optional.end()});
        }
        JSONDictionary result;
        result.setDictionaries("operations", documents);
        session.terminal.json(result);
        return ExitCode::ok;
    }
    std::vector<std::vector<std::string>> rows;
    for (const auto& each : operations) {
        std::string fields(each.required);
        for (const auto name : wordsOf(each.optional))
            fields.append(fields.empty() ? "" : " ").append(fmt::format("[{}]", name));
        rows.push_back({std::string(rawValue(each.operation)), std::move(fields)});
    }
    session.terminal.table({"OPERATION", "FIELDS"}, rows);
    return ExitCode::ok;
}

ExitCode call(Session& session, const APIOptions& options) {
    if (options.operation.empty()) return printOperations(session);
    const Operation& operation = operationOf(options.operation);
    const FieldValues values = valuesOf(operation, options.fields);
    const auto recording = session.record();
    session.configure();
    if (operation.kind == OperationKind::destroying)
        confirm(session, options.isConfirmed,
                fmt::format("send {} as the profile '{}'", options.operation,
                            actingProfileName(session)));
    const bool needsBrand =
        operation.kind == OperationKind::list ||
        (operation.kind == OperationKind::destroying && operation.required.empty());
    const auto acting = needsBrand ? actingProfileOfBrand(session) : actingProfile(session);
    std::exception_ptr error;
    try {
        operation.send(session, acting, values);
    } catch (...) {
        error = std::current_exception();
    }
    print(session, *recording, options.operation);
    if (error) std::rethrow_exception(error);
    return ExitCode::ok;
}

}  // namespace

void addAPICommand(CLI::App& app, Command& chosen) {
    const auto options = std::make_shared<APIOptions>();
    auto& command = *app.add_subcommand(
        "api", "Send one operation, and show what is sent and answered, without tokens");
    command
        .add_option("OPERATION", options->operation,
                    "The operation's name in the configuration (default: show all of them)")
        ->type_name("");
    command.add_option("FIELD", options->fields, "What it is about, each as NAME=VALUE")
        ->type_name("");
    addConfirmation(command, options->isConfirmed);
    onChosen(command, chosen, options, &call);
}

}  // namespace KestrinProfileCLI
