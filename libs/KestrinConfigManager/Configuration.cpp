#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <memory>
#include <span>
#include <sys/stat.h>
#include <system_error>
#include <utility>

#include <HalvardSling/http/Headers.hpp>
#include <HalvardSling/http/URL.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/URLTemplate.hpp>
#include <KestrinConfigManager/WebService.hpp>
#include <KestrinConfigManager/internal/BodyFormNames.hpp>
#include <KestrinConfigManager/internal/RequestPolicyOptions.hpp>
#include <internal/ASCII.hpp>
#include <internal/FileDescriptor.hpp>
#include <internal/Quoting.hpp>

namespace KestrinConfigManager {

namespace {

using HalvardSling::Headers;
using HalvardSling::JSONDictionary;
using HalvardSling::JSONFailure;
using HalvardSling::JSONKind;
using HalvardSling::RequestPolicy;
using KestrinInternal::inQuotes;
using KestrinInternal::listInQuotes;
using KestrinInternal::loweredText;
using Problems = std::vector<ConfigurationProblem>;

/// Why a value is refused; absent if it was stored.
using Refusal = std::optional<std::string>;

/// Where a value stands in the configuration, and where its problems go.
class Location {
  public:
    explicit Location(Problems& problems) : problems_(&problems) {}

    /// The value of a key that the schema names.
    [[nodiscard]] Location key(std::string_view name) const {
        return below("." + std::string(name));
    }
    /// The value of a key that the author of the configuration chose.
    [[nodiscard]] Location entry(std::string_view name) const {
        return below("[" + inQuotes(name) + "]");
    }
    [[nodiscard]] Location item(std::size_t index) const {
        return below("[" + std::to_string(index) + "]");
    }

    /// Does nothing if there is no refusal.
    void report(Refusal refusal) const {
        if (refusal) problems_->push_back({path_, *std::move(refusal)});
    }

  private:
    [[nodiscard]] Location below(std::string_view step) const {
        Location location(*this);
        location.path_ += step;
        return location;
    }

    Problems* problems_;
    std::string path_ = "$";
};

/// What a value is and what it should be, if the two are of different kinds.
std::string mismatch(std::optional<JSONKind> found, const std::string& expected) {
    if (!found) return "is missing, expected " + expected;
    return "is " + std::string(HalvardSling::name(*found)) + ", expected " + expected;
}

/// The keys of a dictionary; reports those that the text repeats.
std::vector<std::string_view> distinctKeys(const Location& location,
                                           const JSONDictionary& dictionary) {
    for (const std::string_view key : dictionary.repeatedKeys())
        location.entry(key).report("occurs more than once");
    return dictionary.keys();
}

// What the value of a key can be. Each shape says what is expected, how a dictionary finds a
// value of its kind, and checks and stores it.

template <class Target>
struct Text {
    std::string_view what;
    Refusal (*store)(Target&, std::string_view);

    [[nodiscard]] std::string expected() const { return std::string(what); }

    static constexpr auto find = &JSONDictionary::text;

    void accept(const Location& location, std::string_view value, Target& target) const {
        location.report(value.empty() ? Refusal("is empty, expected " + expected())
                                      : store(target, value));
    }
};

template <class Target>
struct Flag {
    void (*store)(Target&, bool);

    [[nodiscard]] static std::string expected() { return "a Boolean"; }

    static constexpr auto find = &JSONDictionary::boolean;

    void accept(const Location&, bool value, Target& target) const { store(target, value); }
};

template <class Target>
struct Integer {
    std::int64_t least;
    std::int64_t greatest;
    void (*store)(Target&, std::int64_t);

    [[nodiscard]] std::string expected() const {
        if (least == greatest) return "the integer " + std::to_string(least);
        return "an integer from " + std::to_string(least) + " to " + std::to_string(greatest);
    }

    static constexpr auto find = &JSONDictionary::integer;

    void accept(const Location& location, std::int64_t value, Target& target) const {
        if (value < least || value > greatest)
            location.report("is " + std::to_string(value) + ", expected " + expected());
        else
            store(target, value);
    }
};

template <class Target>
struct Word {
    std::span<const std::string_view> words;
    void (*store)(Target&, std::size_t index);

    [[nodiscard]] std::string expected() const { return "one of " + listInQuotes(words); }

    static constexpr auto find = &JSONDictionary::text;

    void accept(const Location& location, std::string_view value, Target& target) const {
        const auto found = std::ranges::find(words, value);
        if (found == words.end())
            location.report("is " + inQuotes(value) + ", expected " + expected());
        else
            store(target, static_cast<std::size_t>(found - words.begin()));
    }
};

template <class Target>
struct TextList {
    std::string_view what;
    Refusal (*store)(Target&, std::string_view item);

    [[nodiscard]] std::string expected() const {
        return "an array of nothing but texts: " + std::string(what);
    }

    static constexpr auto find = &JSONDictionary::texts;

    void accept(const Location& location, const std::vector<std::string_view>& items,
                Target& target) const {
        for (std::size_t index = 0; index < items.size(); ++index)
            location.item(index).report(store(target, items[index]));
    }
};

template <class Target>
struct TextTable {
    Refusal (*store)(Target&, std::string_view name, std::string_view value);

    [[nodiscard]] static std::string expected() { return "a dictionary of texts"; }

    static constexpr auto find = &JSONDictionary::dictionary;

    void accept(const Location& location, const JSONDictionary& table, Target& target) const {
        for (const std::string_view name : distinctKeys(location, table)) {
            const auto value = table.text(name);
            location.entry(name).report(value ? store(target, name, *value)
                                              : mismatch(table.kind(name), "a text"));
        }
    }
};

/// A dictionary with a reader of its own.
template <class Target>
struct Nested {
    void (*read)(const Location&, const JSONDictionary& content, Target&);

    [[nodiscard]] static std::string expected() { return "a dictionary"; }

    static constexpr auto find = &JSONDictionary::dictionary;

    void accept(const Location& location, const JSONDictionary& content, Target& target) const {
        read(location, content, target);
    }
};

/// One key of a dictionary: its name, what its value must be, where the value goes.
template <class Target>
struct Key {
    std::string_view name;
    std::variant<Text<Target>, Flag<Target>, Integer<Target>, Word<Target>, TextList<Target>,
                 TextTable<Target>, Nested<Target>>
        shape;
    bool required = false;

    void read(const Location& location, const JSONDictionary& dictionary, Target& target) const {
        std::visit(
            [&](const auto& known) {
                const auto kind = dictionary.kind(name);
                if (const auto value = (dictionary.*known.find)(name))
                    known.accept(location, *value, target);
                else if (kind || required)
                    location.report(mismatch(kind, known.expected()));
            },
            shape);
    }
};

void reportUnknownKeys(const Location& location, const JSONDictionary& dictionary,
                       const std::vector<std::string_view>& known) {
    for (const std::string_view key : distinctKeys(location, dictionary))
        if (std::ranges::find(known, key) == known.end())
            location.entry(key).report("is not a known key" +
                                       KestrinInternal::suggestion(key, known));
}

/// The top of the configuration while it is read.
struct TopLevel {
    Configuration configuration;
    WebService prototype;  ///< what every service begins with
    HalvardSling::CleartextHosts cleartextHosts;
};

/// A service while it is read.
struct Service {
    WebService service;
    const TopLevel& top;
    std::set<std::string> headerNames;  ///< in small letters
};

RequestPolicy& policyOf(TopLevel& top) {
    return top.prototype.policy;
}
RequestPolicy& policyOf(Service& reading) {
    return reading.service.policy;
}

/// Reads everything in a dictionary into the target: the options of requests, which the services
/// begin with, and then the keys given, in their order.
template <class Target>
void readKeys(const Location& location, const JSONDictionary& dictionary,
              std::span<const Key<Target>> keys, Target& target) {
    std::vector<std::string_view> known;
    for (const auto& key : keys)
        known.push_back(key.name);
    for (const auto& option : internal::requestPolicyOptions)
        known.push_back(option.key);
    reportUnknownKeys(location, dictionary, known);
    for (const auto& [name, least, greatest, set, get] : internal::requestPolicyOptions)
        Key<RequestPolicy>{name, Integer<RequestPolicy>{least, greatest, set}}.read(
            location.key(name), dictionary, policyOf(target));
    for (const auto& key : keys)
        key.read(location.key(key.name), dictionary, target);
}

Refusal notAURL() {
    return "is not an absolute URL, expected one that begins with \"https://\"";
}

/// The host of a URL for which cleartext is not allowed; absent if it is.
Refusal cleartextRefusal(const HalvardSling::Origin& origin, const TopLevel& top) {
    if (origin.scheme != "http" || top.cleartextHosts.contains(origin)) return std::nullopt;
    return "uses http, which is not allowed for the host " + inQuotes(origin.host) +
           "; use https, or name the host in \"cleartextHosts\"" +
           (origin.isLoopback() ? ", or set \"development\"" : "");
}

std::string withPlaceholdersFilled(const URLTemplate& url) {
    TextMap values;
    for (const std::string_view token : url.placeholders())
        values.emplace(token, "x");
    return url.filled(values);
}

Refusal storeURL(Service& target, std::string_view text) {
    URLTemplate url{std::string(text)};
    const std::string_view front = text.substr(0, url.pathBegin());
    const URLTemplate frontTemplate{std::string(front)};
    if (const auto inFront = frontTemplate.unfilled({}))
        return "has the placeholder " + std::string(*inFront) +
               " in its scheme or host, expected none before the path";
    if (front.find('@') != std::string_view::npos)
        return "holds user information, expected none; credentials belong in a header";

    const std::string scheme = loweredText(front.substr(0, front.find("://")));
    if (scheme != "http" && scheme != "https") return notAURL();
    const auto sample = HalvardSling::URL::parse(withPlaceholdersFilled(url));
    if (const auto* const error = std::get_if<HalvardSling::SlingError>(&sample))
        return std::string("cannot be sent: ") + error->what();
    const auto& origin = std::get<HalvardSling::URL>(sample).origin();
    if (auto refusal = cleartextRefusal(origin, target.top)) return refusal;

    if (origin.scheme == "http") {
        target.service.policy.allowsCleartext = true;
        target.service.policy.cleartextHosts =
            std::make_shared<const HalvardSling::CleartextHosts>(target.top.cleartextHosts);
    }
    target.service.url = std::move(url);
    return std::nullopt;
}

Refusal storeHeader(Service& target, std::string_view name, std::string_view value) {
    Headers& headers = target.service.headers;
    if (!Headers::isValidName(name)) return "has a name that no header may have";
    if (!Headers::isValidValue(value))
        return "has a character in its value that no header may carry";
    if (!target.headerNames.insert(loweredText(name)).second)
        return "names a header that is there already in other letter case";
    headers.add(name, value);
    return std::nullopt;
}

Refusal storeQuery(Service& target, std::string_view name, std::string_view value) {
    if (name.empty()) return "has an empty name";
    target.service.query.emplace(name, value);
    return std::nullopt;
}

Refusal storeCleartextHost(TopLevel& target, std::string_view host) {
    const std::string wanted = loweredText(host);
    const auto url = HalvardSling::URL::parse("http://" + wanted);
    const auto* const parsed = std::get_if<HalvardSling::URL>(&url);
    if (parsed == nullptr || parsed->origin().host != wanted)
        return "is not a host, expected a name or address without scheme, port and path";
    target.cleartextHosts.names.insert(wanted);
    return std::nullopt;
}

constexpr std::array<std::string_view, 6> methods{"GET", "POST", "PUT", "PATCH", "DELETE", "HEAD"};

constexpr std::array<Key<Service>, 6> serviceKeys{{
    {"method",
     Word<Service>{methods, [](Service& target,
                               std::size_t index) { target.service.method = methods.at(index); }}},
    {"url", Text<Service>{"a URL template", storeURL}, true},
    {"body", Word<Service>{internal::bodyFormNames,
                           [](Service& target, std::size_t index) {
                               target.service.body = static_cast<BodyForm>(index);
                           }}},
    {"headers", TextTable<Service>{storeHeader}},
    {"query", TextTable<Service>{storeQuery}},
    {"enabled", Flag<Service>{[](Service& target, bool value) { target.service.enabled = value; }}},
}};

void readService(const Location& location, const JSONDictionary& services,
                 std::string_view operation, const TopLevel& top, ServiceTable& table) {
    if (operation.empty()) location.report("has an empty name, expected the name of an operation");
    const auto content = services.dictionary(operation);
    if (!content) return location.report(mismatch(services.kind(operation), "a dictionary"));
    Service reading{top.prototype, top, {}};
    reading.service.operation = operation;
    readKeys<Service>(location, *content, serviceKeys, reading);
    table.add(std::move(reading.service));
}

void readServices(const Location& location, const JSONDictionary& services, TopLevel& target) {
    auto table = std::make_shared<ServiceTable>();
    for (const std::string_view operation : distinctKeys(location, services))
        readService(location.entry(operation), services, operation, target, *table);
    target.configuration.services = std::move(table);
}

/// The services stand last: they are judged by what the other keys say.
constexpr std::array<Key<TopLevel>, 7> topKeys{{
    {"version", Integer<TopLevel>{1, 1, [](TopLevel&, std::int64_t) {}}, true},
    {"parentProfileID",
     Text<TopLevel>{"a profile identifier",
                    [](TopLevel& target, std::string_view value) -> Refusal {
                        target.configuration.parentProfileID = value;
                        return std::nullopt;
                    }},
     true},
    {"brand", Text<TopLevel>{"the name of a brand",
                             [](TopLevel& target, std::string_view value) -> Refusal {
                                 target.configuration.brand = Brand{std::string(value)};
                                 return std::nullopt;
                             }}},
    {"development",
     Flag<TopLevel>{[](TopLevel& target, bool value) { target.cleartextHosts.loopback = value; }}},
    {"cleartextHosts", TextList<TopLevel>{"host names", storeCleartextHost}},
    {"strictIdentifiers", Flag<TopLevel>{[](TopLevel& target, bool value) {
         target.prototype.strictIdentifiers = value;
     }}},
    {"services", Nested<TopLevel>{readServices}},
}};

ConfigurationResult problemAtTop(std::string message) {
    return Problems{{.path = "$", .message = std::move(message)}};
}

constexpr std::size_t largestFile = std::size_t{16} << 20;

/// What a file is that is not a regular one.
std::string_view nameOfKind(mode_t mode) {
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISFIFO(mode)) return "a pipe";
    return S_ISSOCK(mode) ? "a socket" : "a device";
}

/// Why a file cannot be read.
struct Unreadable {
    std::string reason;
};

std::variant<std::string, Unreadable> contentOf(const std::filesystem::path& file) {
    // Without blocking: opening a named pipe would wait for somebody to write to it.
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const KestrinInternal::FileDescriptor opened(
        KestrinInternal::uninterrupted([&] { return ::open(file.c_str(), flags); }));
    struct stat status{};
    const bool isOpen = opened.isOpen() && ::fstat(opened.number(), &status) == 0;
    if (isOpen && !S_ISREG(status.st_mode))
        return Unreadable{"it is " + std::string(nameOfKind(status.st_mode)) +
                          ", expected a regular file"};
    auto text = isOpen ? opened.readAll(largestFile) : std::nullopt;
    if (text) return *std::move(text);
    return Unreadable{errno == EFBIG ? "it is larger than any configuration"
                                     : std::generic_category().message(errno)};
}

}  // namespace

ConfigurationResult parseConfiguration(std::string_view text) {
    const auto parsed = JSONDictionary::parse(text);
    if (const auto* const failure = std::get_if<JSONFailure>(&parsed))
        return problemAtTop("is not a JSON dictionary: " + failure->text());

    Problems problems;
    TopLevel top;
    readKeys<TopLevel>(Location(problems), std::get<JSONDictionary>(parsed), topKeys, top);
    if (!problems.empty()) return problems;
    return std::move(top.configuration);
}

ConfigurationResult loadConfiguration(const std::filesystem::path& file) {
    auto text = contentOf(file);
    if (const auto* const content = std::get_if<0>(&text)) return parseConfiguration(*content);
    return problemAtTop("the file " + inQuotes(file.string()) +
                        " cannot be read: " + std::get<1>(std::move(text)).reason);
}

}  // namespace KestrinConfigManager
