// The development service: requests are taken apart as they come, and answered from a database. An
// input is what one client sends, one request behind the other; @token@, @secret@ and @child@ in it
// stand for the parent's token, the household's secret, and the identifier of another profile.

#include <algorithm>
#include <array>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/json.hpp>

#include <kestrin-profile-server/Service.hpp>
#include <kestrin-profile-server/http/RequestParser.hpp>

#include "fuzz/Expect.hpp"
#include "fuzz/Folder.hpp"

namespace {

namespace http = boost::beast::http;
using namespace KestrinProfileServer;
using Fuzz::expect;

constexpr std::size_t mostRequests = 16;
constexpr Limits limits{.maxProfiles = 3, .maxListSize = 4};

/// What comes from a client, in pieces of one size, until it closes.
class Connected {
  public:
    Connected(std::string_view bytes, std::size_t piece) : left_(bytes), piece_(piece) {}

    // NOLINTBEGIN(readability-identifier-naming): Asio's names for what is read from.
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers, boost::beast::error_code& error) {
        if (left_.empty()) {
            error = boost::asio::error::eof;
            return 0;
        }
        const std::size_t count = boost::asio::buffer_copy(
            buffers, boost::asio::buffer(left_.data(), std::min(piece_, left_.size())));
        left_.remove_prefix(count);
        error = {};
        return count;
    }
    template <class Buffers>
    std::size_t read_some(const Buffers& buffers) {
        boost::beast::error_code error;
        const std::size_t count = read_some(buffers, error);
        if (error) throw boost::system::system_error(error);
        return count;
    }
    // NOLINTEND(readability-identifier-naming)

  private:
    std::string_view left_;
    std::size_t piece_;
};

/// A request that was read to its end.
struct Whole {
    std::string method;
    std::string target;
    HeaderLines headers;
    std::string body;

    [[nodiscard]] auto all() const { return std::tie(method, target, headers, body); }
};

/// What a connection brought: whole requests, then, maybe, something to refuse.
struct Arrived {
    std::vector<Whole> requests;
    std::optional<ProblemKind> refusal;
};

Arrived refused(Arrived arrived, const std::optional<Problem>& problem) {
    if (problem) arrived.refusal = problem->kind();
    return arrived;
}

/// Reads as the service does.
Arrived arrivedIn(std::string_view bytes, std::size_t piece) {
    Connected client(bytes, piece);
    boost::beast::flat_buffer buffer{headerLimit};
    MemoryBudget budget(2 * bodyLimit);
    Arrived arrived;
    while (arrived.requests.size() < mostRequests) {
        MemoryBudget::Share share(budget);
        RequestParser parser(share);
        boost::beast::error_code error;
        http::read_header(client, buffer, parser, error);
        if (error) return refused(std::move(arrived), parser.problemOf(error));
        if (const auto problem = parser.framingProblem())
            return refused(std::move(arrived), problem);
        const std::size_t headers = parser.headers().size();
        http::read(client, buffer, parser, error);
        if (error) return refused(std::move(arrived), parser.problemOf(error));
        expect(parser.headers().size() == headers, "trailers are no headers");
        expect(headers <= headerCountLimit, "headers are limited");
        expect(parser.body().size() <= bodyLimit, "a body is limited");
        arrived.requests.push_back(
            {parser.method(), parser.target(), parser.headers(), parser.body()});
        if (!parser.keep_alive()) break;
    }
    return arrived;
}

/// Each piece by itself, or all in one. What was cut may be refused or, where no line of it is
/// whole, taken for a client that has gone.
void compare(const Arrived& one, const Arrived& other) {
    expect(std::ranges::equal(one.requests, other.requests, {}, &Whole::all, &Whole::all),
           "the pieces in which bytes come make no other requests of them");
    expect(!one.refusal || !other.refusal || one.refusal == other.refusal, "nor other refusals");
}

/// The service without its connections. The time stands still.
class Answering {
  public:
    [[nodiscard]] std::string filledIn(std::string_view input) const {
        std::string text(input);
        for (const auto& [mark, value] : std::array<std::pair<std::string_view, std::string>, 3>{
                 {{"@token@", token_}, {"@secret@", household_.secret}, {"@child@", child_}}})
            for (auto at = text.find(mark); at != std::string::npos;
                 at = text.find(mark, at + value.size()))
                text.replace(at, mark.size(), value);
        return text;
    }

    void answer(const Whole& whole) {
        Request request{whole.method, whole.target, whole.body, {}, {}};
        for (const auto& [name, value] : whole.headers)
            request.headers.emplace_back(name, value);
        std::promise<Reply> promise;
        dispatcher_.dispatch(request, reader_,
                             [&](Reply reply) { promise.set_value(std::move(reply)); });
        const Reply reply = promise.get_future().get();
        check(reply);
        expect(holdsSecret(whole) || reply.body.find(household_.secret) == std::string::npos,
               "no reply tells a secret");
        if (whole.method != "GET" && !isFailure(reply)) checkStored();
    }

    /// As it was before.
    void forget() {
        if (!std::exchange(isChanged_, false)) return;
        writer_.database().exec(
            "BEGIN IMMEDIATE; DELETE FROM profiles WHERE NOT is_parent;"
            "DELETE FROM entries; UPDATE profiles SET username = 'parent', name_key = 'parent',"
            " avatar = NULL, profile_group = NULL, is_default = 1; COMMIT");
        addChild();
    }

  private:
    /// Whether the secret stands where a reply may repeat what came.
    [[nodiscard]] bool holdsSecret(const Whole& whole) const {
        const auto holds = [&](const std::string& text) {
            return text.find(household_.secret) != std::string::npos;
        };
        return holds(whole.method) || holds(whole.target) || holds(whole.body) ||
               std::ranges::any_of(whole.headers, [&](const auto& header) {
                   const auto& [name, value] = header;
                   return holds(value) && name != secretHeader && name != "Authorization";
               });
    }

    static void check(const Reply& reply) {
        expect(reply.status < 500, "no request makes the service fail");
        expect(reply.body.empty() == reply.contentType.empty(), "a body has a type");
        if (isFailure(reply))
            expect(reply.contentType == "application/problem+json", "a failure is explained");
        if (reply.body.empty()) return;
        const auto document = boost::json::parse(reply.body);
        if (isFailure(reply))
            expect(
                document.at("status") == reply.status && !document.at("detail").as_string().empty(),
                "the explanation has the reply's status, and says what is wrong");
    }

    [[nodiscard]] std::int64_t count(const char* sql) {
        return writer_.database().execAndGet(sql).getInt64();
    }

    void checkStored() {
        isChanged_ = true;
        expect(count("SELECT count(*) FROM profiles WHERE is_default") == 1, "one is the default");
        expect(
            count("SELECT count(*) FROM profiles") <= static_cast<std::int64_t>(limits.maxProfiles),
            "the profiles are limited");
        expect(count("SELECT coalesce(max(size), 0) FROM (SELECT count(*) AS size FROM entries"
                     " GROUP BY profile, list, brand)") <=
                   static_cast<std::int64_t>(limits.maxListSize),
               "the lists are limited");
        expect(count("SELECT count(*) FROM entries WHERE instr(id, char(0))") == 0,
               "no identifier has a zero character");
    }

    void addChild() {
        Query(writer_,
              "INSERT INTO profiles (household, id, username, name_key, is_default, is_parent)"
              " VALUES (?, ?, 'child', 'child', 0, 0)",
              household_.row, child_)
            .run();
    }

    [[nodiscard]] ServiceSettings settings() const {
        ServiceSettings settings;
        settings.database = file_;
        settings.parentProfileID = "parent";
        return settings;
    }

    const Fuzz::Folder folder_{"service"};
    const std::filesystem::path file_ = folder_ / "database";
    const std::string child_ = "0123456789abcdef";
    const Clock clock_ = [] { return Milliseconds{1489083943511}; };
    const Household household_ = prepareHousehold(settings());
    const Tokens tokens_{"a key", std::chrono::hours(1), clock_};
    const std::string token_ = tokens_.issue({"parent", household_.name});
    WriteQueue writes_{file_};
    const LiveLimits limits_{limits};
    const Dispatcher dispatcher_{tokens_, limits_, clock_, writes_};
    Connection reader_{file_, Connection::Mode::readOnly};
    Connection writer_{file_, Connection::Mode::readWrite};
    bool isChanged_ = (addChild(), false);
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Answering service;
    const std::string bytes = service.filledIn(Fuzz::textOf(data, size));
    const Arrived arrived = arrivedIn(bytes, bytes.size());
    compare(arrived, arrivedIn(bytes, 1));
    for (const auto& request : arrived.requests)
        service.answer(request);
    service.forget();
    return 0;
}
