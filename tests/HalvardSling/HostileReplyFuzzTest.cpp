// Replies made of good ones by a generator, several on each connection, over HTTP/1.1, TLS and
// HTTP/2. Whatever comes, each request ends once, no reply is one that was never asked for, and
// nothing is left behind. Run under AddressSanitizer it shows whether memory is touched that is
// nobody's. KESTRIN_TEST_FACTOR makes it run longer; KESTRIN_TEST_SEED begins it elsewhere.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include "CurlTransfers.hpp"
#include "Gzip.hpp"
#include "support/Certificates.hpp"
#include "support/HTTP2Connection.hpp"
#include "support/Program.hpp"
#include "support/Rounds.hpp"
#include "support/SystemCalls.hpp"

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

enum class Over { cleartext, tls, http2 };

unsigned long seedOf() {
    const char* const text = std::getenv("KESTRIN_TEST_SEED");
    return text == nullptr ? 1 : std::strtoul(text, nullptr, 10);
}

/// Makes replies. The same seed makes the same ones.
class Generator {
  public:
    explicit Generator(unsigned long seed) : random_(seed) {}

    std::size_t below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
    }

    template <class List>
    const auto& oneOf(const List& list) {
        return *(std::begin(list) + static_cast<std::ptrdiff_t>(below(std::size(list))));
    }

    bool isOneIn(std::size_t bound) { return below(bound) == 0; }

    /// The bytes of a reply over HTTP/1.1, most of them not quite right.
    std::string reply() {
        std::string result = head() + "\r\n" + body_;
        for (std::size_t left = isOneIn(3) ? 0 : below(4); left > 0; --left)
            mutate(result);
        return result;
    }

    /// A frame of HTTP/2, most of them not quite right.
    std::string frame(std::uint32_t stream) {
        static constexpr std::array<std::string_view, 5> fields{
            "\x88", "\x88\x0F\x0D\x01\x32", "\x8D", std::string_view("\x88\x00\x01X\x01y", 6),
            "\xFF\xFF\xFF\xFF\xFF"};
        static constexpr std::array<std::uint8_t, 8> flags{0, 1, 4, 5, 8, 0x20, 0x2D, 0xFF};
        const auto type = static_cast<std::uint8_t>(below(11));
        const std::array<std::uint32_t, 5> streams{stream, stream, stream, 0, stream + 2};
        std::string payload = type == 1 ? std::string(oneOf(fields))
                              : type == 3
                                  ? HTTP2Connection::number(static_cast<std::uint32_t>(below(14)))
                                  : std::string(below(20), static_cast<char>(below(256)));
        std::string result = HTTP2Connection::frame(type, oneOf(flags), oneOf(streams), payload);
        if (isOneIn(8)) mutate(result);
        return result;
    }

  private:
    std::string head() {
        static constexpr std::array<std::string_view, 7> statusLines{
            "HTTP/1.1 200 OK\r\n",
            "HTTP/1.1 200 OK\r\n",
            "HTTP/1.0 200 OK\r\n",
            "HTTP/1.1 204 Nothing\r\n",
            "HTTP/1.1 404 None\r\n",
            "HTTP/1.1 302 Found\r\nLocation: /again\r\n",
            "HTTP/1.1 103 Early\r\nA: b\r\n\r\nHTTP/1.1 200 OK\r\n"};
        static constexpr std::array<std::string_view, 12> fields{
            " X: folded\r\n",        "\tfolded\r\n",
            "X-One: 1\r\n",          "X-One: 1\r\n two\r\n",
            "no colon\r\n",          ": no name\r\n",
            "Connection: close\r\n", "Content-Type: application/json\r\n",
            "X: a\rb\r\n",           "X-\xFF: \xFE\r\n",
            "Set-Cookie: a=b\r\n",   "Trailer: T\r\n"};
        std::string result(oneOf(statusLines));
        for (std::size_t left = below(5); left > 0; --left)
            result += oneOf(fields);
        return result + framedBody();
    }

    /// Makes a body.
    /// @return the fields that say how it is framed and coded
    std::string framedBody() {
        std::string fields;
        body_ = isOneIn(20) ? std::string(below(300'000), 'x') : R"({"a":[1,"b"]})";
        if (isOneIn(3)) {
            body_ = gzipped(body_.substr(0, 60'000));
            fields += "Content-Encoding: gzip\r\n";
        }
        if (isOneIn(8)) return fields;
        if (!isOneIn(3)) return fields + "Content-Length: " + std::to_string(body_.size()) + "\r\n";
        const std::size_t cut = below(body_.size() + 1);
        body_ = chunk(body_.substr(0, cut)) + chunk(body_.substr(cut)) + "0\r\n" +
                (isOneIn(2) ? "T: trailer\r\n" : "") + "\r\n";
        return fields + "Transfer-Encoding: chunked\r\n";
    }

    static std::string chunk(const std::string& bytes) {
        if (bytes.empty()) return {};
        std::array<char, 20> size{};
        std::snprintf(size.data(), size.size(), "%zx", bytes.size());
        return std::string(size.data()) + "\r\n" + bytes + "\r\n";
    }

    void mutate(std::string& bytes) {
        if (bytes.empty()) return;
        static constexpr std::array<std::string_view, 8> pieces{
            "\r\n", "\n", "\r", " ", ":", "\r\n\r\n", "0\r\n\r\n", "HTTP/1.1 200 OK\r\n"};
        // Where it hurts most: in the head.
        const std::size_t at =
            below(std::min<std::size_t>(bytes.size(), isOneIn(4) ? 1'000'000 : 200));
        switch (below(6)) {
            case 0:
                bytes[at] = static_cast<char>(below(256));
                break;
            case 1:
                bytes.erase(at, 1 + below(8));
                break;
            case 2:
                bytes.insert(at, oneOf(pieces));
                break;
            case 3:
                bytes.insert(at, bytes.substr(at, below(40)));
                break;
            case 4:
                bytes.resize(at);
                break;
            default:
                bytes.insert(at, std::string(1 + below(3), static_cast<char>(below(256))));
        }
    }

    std::mt19937_64 random_;
    std::string body_;
};

class HostileReplies : public testing::TestWithParam<Over> {
  protected:
    [[nodiscard]] std::optional<ServerTLS> tls() const {
        if (GetParam() == Over::cleartext) return std::nullopt;
        return ServerTLS{.certificateFile = certificate.certificateFile(),
                         .keyFile = certificate.keyFile(),
                         .protocol = GetParam() == Over::http2 ? "h2" : "http/1.1"};
    }

    /// Answers what is asked for, and closes now and then, which ends what waits for more.
    static void serve(RawConnection& raw, unsigned long seed, Over over) {
        Generator generator(seed + raw.index());
        if (over == Over::http2) return serveHTTP2(raw, generator);
        while (raw.readRequest())
            if (!raw.send(generator.reply()) || generator.isOneIn(3)) return;
    }

    static void serveHTTP2(RawConnection& raw, Generator& generator) {
        HTTP2Connection connection(raw);
        while (const auto stream = connection.readRequest()) {
            if (!generator.isOneIn(4)) connection.sendHeadWithoutLength(*stream);
            for (std::size_t left = generator.below(5); left > 0; --left)
                if (!connection.send(generator.frame(*stream))) return;
            if (generator.isOneIn(3)) return;
            if (!connection.send(HTTP2Connection::data(*stream, "{}", HTTP2Connection::Ends::yes)))
                return;
        }
    }

    Certificate certificate;
};

std::size_t openDescriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

/// How often the completion of each request was called.
class Ends {
  public:
    explicit Ends(std::size_t requests) : counts_(requests) {}

    [[nodiscard]] TransportCompletion of(std::size_t request) {
        return [this, request](const TransportResult&) {
            ++counts_[request];
            all_.add();
        };
    }

    [[nodiscard]] bool reach(std::size_t count) const { return all_.reaches(count); }

    [[nodiscard]] std::vector<int> counts() const { return {counts_.begin(), counts_.end()}; }

  private:
    std::vector<std::atomic<int>> counts_;
    Tally all_;
};

TEST_P(HostileReplies, EndEachRequestOnceAndLeaveNothingBehind) {
    constexpr std::size_t perRound = 48;
    const std::size_t descriptors = openDescriptors();
    const std::size_t threads = otherThreads().size();
    for (std::size_t round = 0; round < roundsOf(6); ++round) {
        const unsigned long seed = seedOf() + 1000 * round;
        SCOPED_TRACE("KESTRIN_TEST_SEED=" + std::to_string(seed));
        const std::size_t atOnce = round % 2 == 0 ? 1 : 8;
        Ends ends(perRound);
        const RawServer server([&](RawConnection& raw) { serve(raw, seed, GetParam()); }, tls());
        {
            CurlTransport transport(
                {.maxInFlight = atOnce, .caBundleFile = certificate.certificateFile()});
            for (std::size_t i = 0; i < perRound; ++i) {
                auto request =
                    requestTo(server.url("/" + std::to_string(i)), i % 4 == 3 ? "POST" : "GET");
                request.policy.maxRedirects = 2;
                // For replies of which the rest never comes.
                request.policy.totalTimeout = 100ms;
                transport.send(checked(request), ends.of(i));
                if ((i + 1) % atOnce != 0) continue;
                ASSERT_TRUE(ends.reach(i + 1));
            }
        }
        EXPECT_THAT(ends.counts(), testing::Each(1));
    }
    EXPECT_TRUE(eventually([&] { return otherThreads().size() <= threads; }));
    EXPECT_LE(openDescriptors(), descriptors);
}

std::string nameOf(Over over) {
    static constexpr std::array<std::string_view, 3> names{"Cleartext", "TLS", "HTTP2"};
    return std::string(names.at(static_cast<std::size_t>(over)));
}

INSTANTIATE_TEST_SUITE_P(Over, HostileReplies,
                         testing::Values(Over::cleartext, Over::tls, Over::http2),
                         [](const auto& each) { return nameOf(each.param); });

}  // namespace
