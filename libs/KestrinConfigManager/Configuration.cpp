#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <set>
#include <span>
#include <system_error>
#include <utility>

#include <HalvardSling/http/Headers.hpp>
#include <HalvardSling/http/URL.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/URLTemplate.hpp>
#include <KestrinConfigManager/WebService.hpp>

namespace KestrinConfigManager {

namespace {

using HalvardSling::Headers;
using HalvardSling::JSONDictionary;
using HalvardSling::JSONFailure;
using HalvardSling::JSONKind;
using Problems = std::vector<ConfigurationProblem>;

/// Why a value is refused; absent where it was stored.
using Refusal = std::optional<std::string>;

std::string inQuotes(std::string_view text) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20) {
            ((result += "\\u00") += digits[byte >> 4]) += digits[byte & 15];
            continue;
        }
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result += '"';
}

std::string listed(const auto& names) {
    std::string result;
    for (const std::string_view name : names)
        result.append(result.empty() ? "" : ", ").append(inQuotes(name));
    return result;
}

/// A value in the configuration: its path, and where its problems go.
class Place {
  public:
    explicit Place(Problems& problems) : problems_(&problems) {}

    /// The value of a key that the schema names.
    [[nodiscard]] Place key(std::string_view name) const { return below("." + std::string(name)); }
    /// The value of a key that the author of the configuration chose.
    [[nodiscard]] Place entry(std::string_view name) const {
        return below("[" + inQuotes(name) + "]");
    }
    [[nodiscard]] Place item(std::size_t index) const {
        return below("[" + std::to_string(index) + "]");
    }

    /// Does nothing where there is no refusal.
    void report(Refusal refusal) const {
        if (refusal) problems_->push_back({path_, *std::move(refusal)});
    }

  private:
    [[nodiscard]] Place below(std::string_view step) const {
        Place place(*this);
        place.path_ += step;
        return place;
    }

    Problems* problems_;
    std::string path_ = "$";
};

/// What a value is and what it should be, where the two are of different kinds.
std::string mismatch(std::optional<JSONKind> found, const std::string& expected) {
    if (!found) return "is missing, expected " + expected;
    return "is " + std::string(HalvardSling::name(*found)) + ", expected " + expected;
}

/// The keys of a dictionary without repetition; reports those that occur more than once.
std::vector<std::string_view> distinctKeys(const Place& place, const JSONDictionary& dictionary) {
    std::vector<std::string_view> distinct;
    std::set<std::string_view> seen;
    std::set<std::string_view> repeated;
    for (const std::string_view key : dictionary.keys())
        if (seen.insert(key).second)
            distinct.push_back(key);
        else if (repeated.insert(key).second)
            place.entry(key).report("occurs more than once");
    return distinct;
}

// What the value of a key can be. Each shape says what is expected, finds a value of its kind, and
// checks and stores it.

template <class Target>
struct Text {
    std::string_view what;
    Refusal (*store)(Target&, std::string_view);

    [[nodiscard]] std::string expected() const { return std::string(what); }

    [[nodiscard]] static auto find(const JSONDictionary& dictionary, std::string_view key) {
        return dictionary.text(key);
    }

    void accept(const Place& place, std::string_view value, Target& target) const {
        place.report(value.empty() ? Refusal("is empty, expected " + expected())
                                   : store(target, value));
    }
};

template <class Target>
struct Flag {
    void (*store)(Target&, bool);

    [[nodiscard]] static std::string expected() { return "a Boolean"; }

    [[nodiscard]] static auto find(const JSONDictionary& dictionary, std::string_view key) {
        return dictionary.boolean(key);
    }

    void accept(const Place&, bool value, Target& target) const { store(target, value); }
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

    [[nodiscard]] static auto find(const JSONDictionary& dictionary, std::string_view key) {
        return dictionary.integer(key);
    }

    void accept(const Place& place, std::int64_t value, Target& target) const {
        if (value < least || value > greatest)
            place.report("is " + std::to_string(value) + ", expected " + expected());
        else
            store(target, value);
    }
};

template <class Target>
struct Word {
    std::span<const std::string_view> words;
    void (*store)(Target&, std::size_t index);

    [[nodiscard]] std::string expected() const { return "one of " + listed(words); }

    [[nodiscard]] static auto find(const JSONDictionary& dictionary, std::string_view key) {
        return dictionary.text(key);
    }

    void accept(const Place& place, std::string_view value, Target& target) const {
        const auto found = std::ranges::find(words, value);
        if (found == words.end())
            place.report("is " + inQuotes(value) + ", expected " + expected());
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

    [[nodiscard]] static auto find(const JSONDictionary& dictionary, std::string_view key) {
        return dictionary.texts(key);
    }

    void accept(const Place& place, const std::vector<std::string_view>& items,
                Target& target) const {
        for (std::size_t index = 0; index < items.size(); ++index)
            place.item(index).report(store(target, items[index]));
    }
};

template <class Target>
struct TextTable {
    Refusal (*store)(Target&, std::string_view name, std::string_view value);

    [[nodiscard]] static std::string expected() { return "a dictionary of texts"; }

    [[nodiscard]] static auto find(const JSONDictionary& dictionary, std::string_view key) {
        return dictionary.dictionary(key);
    }

    void accept(const Place& place, const JSONDictionary& table, Target& target) const {
        for (const std::string_view name : distinctKeys(place, table)) {
            const auto value = table.text(name);
            place.entry(name).report(value ? store(target, name, *value)
                                           : mismatch(table.kind(name), "a text"));
        }
    }
};

/// A dictionary with a reader of its own.
template <class Target>
struct Nested {
    void (*read)(const Place&, const JSONDictionary& content, Target&);

    [[nodiscard]] static std::string expected() { return "a dictionary"; }

    [[nodiscard]] static auto find(const JSONDictionary& dictionary, std::string_view key) {
        return dictionary.dictionary(key);
    }

    void accept(const Place& place, const JSONDictionary& content, Target& target) const {
        read(place, content, target);
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

    void read(const Place& place, const JSONDictionary& dictionary, Target& target) const {
        std::visit(
            [&](const auto& known) {
                const auto kind = dictionary.kind(name);
                if (const auto value = known.find(dictionary, name))
                    known.accept(place, *value, target);
                else if (kind || required)
                    place.report(mismatch(kind, known.expected()));
            },
            shape);
    }
};

constexpr char lowered(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string loweredText(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), lowered);
    return result;
}

/// How many letters must be inserted, removed, replaced or swapped with their neighbour to make one
/// name of the other, whatever their case.
std::size_t distance(std::string_view left, std::string_view right) {
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(right.size() + 1);
    for (std::size_t column = 0; column <= right.size(); ++column)
        last[column] = column;

    const auto same = [&](std::size_t row, std::size_t column) {
        return lowered(left[row - 1]) == lowered(right[column - 1]);
    };
    for (std::size_t row = 1; row <= left.size(); ++row) {
        std::vector<std::size_t> current(right.size() + 1, row);
        for (std::size_t column = 1; column <= right.size(); ++column) {
            current[column] = std::min({last[column] + 1, current[column - 1] + 1,
                                        last[column - 1] + (same(row, column) ? 0U : 1U)});
            if (row > 1 && column > 1 && same(row, column - 1) && same(row - 1, column))
                current[column] = std::min(current[column], beforeLast[column - 2] + 1);
        }
        beforeLast = std::exchange(last, std::move(current));
    }
    return last.back();
}

/// The known name that somebody who wrote this one most likely meant; absent if none is close.
std::optional<std::string_view> nearest(std::string_view name,
                                        const std::vector<std::string_view>& known) {
    constexpr std::size_t longest = 64;  // far more than any known name
    if (name.size() > longest) return std::nullopt;
    const auto distanceTo = [&](std::string_view each) { return distance(name, each); };
    const auto best = std::ranges::min_element(known, {}, distanceTo);
    if (best == known.end() || distanceTo(*best) > std::max<std::size_t>(1, best->size() / 3))
        return std::nullopt;
    return *best;
}

void reportUnknownKeys(const Place& place, const JSONDictionary& dictionary,
                       const std::vector<std::string_view>& known) {
    for (const std::string_view key : distinctKeys(place, dictionary)) {
        if (std::ranges::find(known, key) != known.end()) continue;
        const auto meant = nearest(key, known);
        place.entry(key).report(
            "is not a known key; " +
            (meant ? "did you mean " + inQuotes(*meant) + "?" : "known are " + listed(known)));
    }
}

/// Reads everything in a dictionary into the target, in the order of the keys given.
template <class Target>
void readKeys(const Place& place, const JSONDictionary& dictionary,
              std::span<const Key<Target>> keys, Target& target) {
    std::vector<std::string_view> known;
    for (const auto& key : keys)
        known.push_back(key.name);
    reportUnknownKeys(place, dictionary, known);
    for (const auto& key : keys)
        key.read(place.key(key.name), dictionary, target);
}

/// The top of the configuration while it is read.
struct Top {
    Configuration configuration;
    WebService prototype;  ///< what every service begins with
    bool development = false;
    std::set<std::string, std::less<>> cleartextHosts;
};

/// A service while it is read.
struct Service {
    WebService service;
    const Top& top;
};

constexpr WebService& serviceOf(Top& top) {
    return top.prototype;
}
constexpr WebService& serviceOf(Service& service) {
    return service.service;
}

constexpr std::int64_t longestTimeout = std::int64_t{24} * 60 * 60 * 1000;
constexpr std::int64_t largestBody = std::int64_t{1} << 30;

// The limits stand at the top, for all services, and in a service.

template <class Target>
constexpr Key<Target> connectTimeoutKey{
    "connectTimeoutMilliseconds",
    Integer<Target>{1, longestTimeout, [](Target& target, std::int64_t value) {
                        serviceOf(target).policy.connectTimeout = std::chrono::milliseconds(value);
                    }}};

template <class Target>
constexpr Key<Target> totalTimeoutKey{
    "totalTimeoutMilliseconds",
    Integer<Target>{1, longestTimeout, [](Target& target, std::int64_t value) {
                        serviceOf(target).policy.totalTimeout = std::chrono::milliseconds(value);
                    }}};

template <class Target>
constexpr Key<Target> maxBodyKey{
    "maxBodyBytes", Integer<Target>{1, largestBody, [](Target& target, std::int64_t value) {
                                        serviceOf(target).policy.maxBodyBytes =
                                            static_cast<std::size_t>(value);
                                    }}};

Refusal notAURL() {
    return "is not an absolute URL, expected one that begins with \"https://\"";
}

/// The host of a URL for which cleartext is not allowed; absent where all is well.
Refusal cleartextRefusal(const HalvardSling::Origin& origin, const Top& top) {
    if (origin.scheme != "http" || top.cleartextHosts.contains(origin.host)) return std::nullopt;
    const bool loopback = origin.isLoopback();
    if (loopback && top.development) return std::nullopt;
    return "uses http, which is not allowed for the host " + inQuotes(origin.host) +
           "; use https, or name the host in \"cleartextHosts\"" +
           (loopback ? ", or set \"development\"" : "");
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

    target.service.policy.allowsCleartext = origin.scheme == "http";
    target.service.url = std::move(url);
    return std::nullopt;
}

Refusal storeHeader(Service& target, std::string_view name, std::string_view value) {
    Headers& headers = target.service.headers;
    if (!Headers::isValidName(name)) return "has a name that no header may have";
    if (!Headers::isValidValue(value))
        return "has a character in its value that no header may carry";
    if (headers.value(name)) return "names a header that is there already in other letter case";
    headers.add(name, value);
    return std::nullopt;
}

Refusal storeQuery(Service& target, std::string_view name, std::string_view value) {
    if (name.empty()) return "has an empty name";
    target.service.query.emplace(name, value);
    return std::nullopt;
}

Refusal storeCleartextHost(Top& target, std::string_view host) {
    const std::string wanted = loweredText(host);
    const auto url = HalvardSling::URL::parse("http://" + wanted);
    const auto* const parsed = std::get_if<HalvardSling::URL>(&url);
    if (parsed == nullptr || parsed->origin().host != wanted)
        return "is not a host, expected a name or address without scheme, port and path";
    target.cleartextHosts.insert(wanted);
    return std::nullopt;
}

constexpr std::array<std::string_view, 6> methods{"GET", "POST", "PUT", "PATCH", "DELETE", "HEAD"};

/// In the order of `BodyForm`.
constexpr std::array<std::string_view, 3> bodyForms{"none", "json", "form"};

constexpr std::array<Key<Service>, 10> serviceKeys{{
    {"method",
     Word<Service>{methods, [](Service& target,
                               std::size_t index) { target.service.method = methods.at(index); }}},
    {"url", Text<Service>{"a URL template", storeURL}, true},
    {"body", Word<Service>{bodyForms,
                           [](Service& target, std::size_t index) {
                               target.service.body = static_cast<BodyForm>(index);
                           }}},
    {"headers", TextTable<Service>{storeHeader}},
    {"query", TextTable<Service>{storeQuery}},
    connectTimeoutKey<Service>,
    totalTimeoutKey<Service>,
    maxBodyKey<Service>,
    {"maxRedirects", Integer<Service>{0, 20,
                                      [](Service& target, std::int64_t value) {
                                          target.service.policy.maxRedirects =
                                              static_cast<int>(value);
                                      }}},
    {"enabled", Flag<Service>{[](Service& target, bool value) { target.service.enabled = value; }}},
}};

void readService(const Place& place, const JSONDictionary& services, std::string_view operation,
                 const Top& top, ServiceTable& table) {
    if (operation.empty()) place.report("has an empty name, expected the name of an operation");
    const auto content = services.dictionary(operation);
    if (!content) return place.report(mismatch(services.kind(operation), "a dictionary"));
    Service reading{top.prototype, top};
    reading.service.operation = operation;
    readKeys<Service>(place, *content, serviceKeys, reading);
    table.add(std::move(reading.service));
}

void readServices(const Place& place, const JSONDictionary& services, Top& target) {
    auto table = std::make_shared<ServiceTable>();
    for (const std::string_view operation : distinctKeys(place, services))
        readService(place.entry(operation), services, operation, target, *table);
    target.configuration.services = std::move(table);
}

/// The services stand last: they are judged by what the other keys say.
constexpr std::array<Key<Top>, 10> topKeys{{
    {"version", Integer<Top>{1, 1, [](Top&, std::int64_t) {}}, true},
    {"parentProfileID",
     Text<Top>{"a profile identifier",
               [](Top& target, std::string_view value) -> Refusal {
                   target.configuration.parentProfileID = value;
                   return std::nullopt;
               }},
     true},
    {"brand", Text<Top>{"the name of a brand",
                        [](Top& target, std::string_view value) -> Refusal {
                            target.configuration.brand = Brand{std::string(value)};
                            return std::nullopt;
                        }}},
    {"development", Flag<Top>{[](Top& target, bool value) { target.development = value; }}},
    {"cleartextHosts", TextList<Top>{"host names", storeCleartextHost}},
    {"strictIdentifiers",
     Flag<Top>{[](Top& target, bool value) { target.prototype.strictIdentifiers = value; }}},
    connectTimeoutKey<Top>,
    totalTimeoutKey<Top>,
    maxBodyKey<Top>,
    {"services", Nested<Top>{readServices}},
}};

ConfigurationResult problemAtTop(std::string message) {
    return Problems{{.path = "$", .message = std::move(message)}};
}

constexpr std::size_t largestFile = std::size_t{16} << 20;

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { static_cast<void>(std::fclose(file)); }
};

}  // namespace

ConfigurationResult parseConfiguration(std::string_view text) {
    const auto parsed = JSONDictionary::parse(text);
    if (const auto* const failure = std::get_if<JSONFailure>(&parsed))
        return problemAtTop("is not a JSON dictionary: " + failure->text());

    Problems problems;
    Top top;
    readKeys<Top>(Place(problems), std::get<JSONDictionary>(parsed), topKeys, top);
    if (!problems.empty()) return problems;
    return std::move(top.configuration);
}

ConfigurationResult loadConfiguration(const std::filesystem::path& file) {
    const auto failure = [&](std::string_view reason) {
        return problemAtTop("the file " + inQuotes(file.string()) +
                            " cannot be read: " + std::string(reason));
    };
    const std::unique_ptr<std::FILE, CloseFile> stream(std::fopen(file.c_str(), "rb"));
    if (!stream) return failure(std::generic_category().message(errno));

    std::string text;
    std::array<char, 8192> piece{};
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), stream.get())) {
        text.append(piece.data(), count);
        if (text.size() > largestFile) return failure("it is larger than any configuration");
    }
    if (std::ferror(stream.get()) != 0) return failure(std::generic_category().message(errno));
    return parseConfiguration(text);
}

}  // namespace KestrinConfigManager
