// A service that floods its connection with what is for no request: how much is left of the rate of
// requests to another service, and how long after its time limit a request to the flooding one
// ends. The flood needs processors, too, so the rate is also measured while a transport of its own
// takes the flood: what is less than that is what the two share. Usage: flood_rates PAUSE [NAME…].
// The flooding service is asked again when PAUSE milliseconds have passed since its answer. Without
// names, all kinds of floods are measured.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include <HalvardSling/curl/CurlTransport.hpp>

#include "support/Certificates.hpp"
#include "support/HTTP2Connection.hpp"
#include "support/RawServer.hpp"

namespace {

using namespace HalvardSling;
using namespace TestSupport;
using namespace std::chrono_literals;
using namespace std::string_literals;
using Clock = std::chrono::steady_clock;

struct Flood {
    std::string_view name;
    std::optional<std::uint8_t> frame;  ///< its type over HTTP/2; absent: HTTP/1.1 in cleartext
    std::string payload;                ///< of the frame, or what is repeated
    int connections = 1;
    std::size_t bytesPerSecond = 0;  ///< 0: as many as are taken
};

const std::vector<Flood>& floods() {
    static const std::vector<Flood> all{
        {"empty-data", 0, ""},
        {"priority", 2, "\0\0\0\0\1"s},
        {"window-update", 8, "\0\0\0\1"s},
        {"ping", 6, "12345678"},
        {"settings", 4, ""},
        {"unknown", 0xEE, ""},
        {"large-unknown", 0xEE, std::string(16000, 'x')},
        {"data-of-1-byte", 0, "x"},
        {"empty-data-5MB/s", 0, "", 1, 5'000'000},
        {"empty-data-10MB/s", 0, "", 1, 10'000'000},
        {"empty-data-20MB/s", 0, "", 1, 20'000'000},
        {"chunk-extension", std::nullopt,
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1;"},
        {"chunks-of-1-byte", std::nullopt,
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n|1\r\nx\r\n"},
        {"continue", std::nullopt, "|HTTP/1.1 100 Continue\r\n\r\n"},
        {"32-chunk-extensions", std::nullopt,
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1;", 32},
    };
    return all;
}

std::string repeated(const std::string& one) {
    constexpr std::size_t blockSize = 16384;
    std::string block;
    while (block.size() + one.size() <= blockSize)
        block += one;
    return block;
}

void sendAtRate(const std::string& block, std::size_t bytesPerSecond,
                const std::function<bool(const std::string&)>& send) {
    const auto start = Clock::now();
    for (std::size_t sent = 0; send(block);) {
        sent += block.size();
        if (bytesPerSecond > 0)
            std::this_thread::sleep_until(start + sent * 1'000'000'000ns / bytesPerSecond);
    }
}

void serve(RawConnection& raw, const Flood& flood) {
    const auto send = [&](const std::string& block) { return raw.send(block); };
    if (flood.frame) {
        HTTP2Connection connection(raw);
        const auto stream = connection.readRequest();
        if (!stream || !connection.sendHead(*stream, 9'999'999)) return;
        const bool onStream = *flood.frame != 4 && *flood.frame != 6 && *flood.frame != 8;
        const auto one =
            HTTP2Connection::frame(*flood.frame, 0, onStream ? *stream : 0, flood.payload);
        return sendAtRate(repeated(one), flood.bytesPerSecond, send);
    }
    if (!raw.readRequest()) return;
    const auto bar = flood.payload.find('|');
    if (!raw.send(flood.payload.substr(0, bar))) return;
    const auto one = bar == std::string::npos ? "x"s : flood.payload.substr(bar + 1);
    sendAtRate(repeated(one), flood.bytesPerSecond, send);
}

CheckedRequest requestTo(const std::string& url, std::chrono::milliseconds limit) {
    TransportRequest request;
    request.url = url;
    request.policy.allowsCleartext = true;
    request.policy.totalTimeout = limit;
    return std::get<CheckedRequest>(CheckedRequest::of(request));
}

/// Sends a request again and again, each when the one before has ended.
class Line {
  public:
    Line(CurlTransport& transport, std::string url, std::chrono::milliseconds limit,
         std::chrono::milliseconds pause = 0ms)
        : transport_(transport),
          url_(std::move(url)),
          limit_(limit),
          pause_(pause),
          thread_([this] { run(); }) {}
    ~Line() { stop(); }

    void stop() {
        ends_ = true;
        if (thread_.joinable()) thread_.join();
    }

    std::atomic<std::size_t> replies{0};
    std::atomic<std::size_t> failures{0};
    std::atomic<std::int64_t> slowest{0};  ///< microseconds

  private:
    void run() {
        while (!ends_) {
            std::atomic<bool> done{false};
            const auto start = Clock::now();
            transport_.send(requestTo(url_, limit_), [&](const TransportResult& result) {
                const bool isReply = std::holds_alternative<Response>(result);
                ++(isReply ? replies : failures);
                const auto took =
                    std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
                slowest = std::max<std::int64_t>(slowest, took.count());
                done = true;
                done.notify_one();
            });
            done.wait(false);
            for (const auto end = Clock::now() + pause_; !ends_ && Clock::now() < end;)
                std::this_thread::sleep_for(1ms);
        }
    }

    CurlTransport& transport_;
    std::string url_;
    std::chrono::milliseconds limit_;
    std::chrono::milliseconds pause_;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

struct Outcome {
    std::size_t replies = 0;
    std::size_t failures = 0;
    double slowest = 0;       ///< of the others, in milliseconds
    double floodSlowest = 0;  ///< likewise
    std::size_t floods = 0;

    Outcome& operator+=(const Outcome& other) {
        replies += other.replies;
        failures += other.failures;
        slowest = std::max(slowest, other.slowest);
        floodSlowest = std::max(floodSlowest, other.floodSlowest);
        floods += other.floods;
        return *this;
    }
};

constexpr auto floodLimit = 300ms;

enum class Transports { shared, apart };

Outcome measured(const Certificate& certificate, const std::string& other,
                 const std::string& flooding, int connections, std::chrono::milliseconds pause,
                 Transports transports = Transports::shared) {
    const CurlTransport::Options options{.caBundleFile = certificate.certificateFile()};
    CurlTransport transport(options);
    CurlTransport another(options);
    CurlTransport& ofFlood = transports == Transports::shared ? transport : another;
    Outcome outcome;
    std::vector<std::unique_ptr<Line>> flooded;
    for (int i = 0; i < connections; ++i)
        flooded.push_back(std::make_unique<Line>(ofFlood, flooding, floodLimit, pause));
    std::vector<std::unique_ptr<Line>> others;
    for (int i = 0; i < 2; ++i)
        others.push_back(std::make_unique<Line>(transport, other, 60s));
    std::this_thread::sleep_for(2s);
    for (auto* lines : {&others, &flooded})
        for (auto& each : *lines)
            each->stop();
    for (const auto& each : others) {
        outcome.replies += each->replies;
        outcome.failures += each->failures;
        outcome.slowest = std::max(outcome.slowest, static_cast<double>(each->slowest) / 1000);
    }
    for (const auto& each : flooded) {
        outcome.floods += each->failures + each->replies;
        outcome.floodSlowest =
            std::max(outcome.floodSlowest, static_cast<double>(each->slowest) / 1000);
    }
    return outcome;
}

void measure(const Flood& flood, std::chrono::milliseconds pause) {
    constexpr int rounds = 5;
    const Certificate certificate;
    std::optional<ServerTLS> tls;
    if (flood.frame)
        tls = ServerTLS{.certificateFile = certificate.certificateFile(),
                        .keyFile = certificate.keyFile(),
                        .protocol = "h2"};
    const RawServer flooding([&](RawConnection& raw) { serve(raw, flood); }, tls);
    const RawServer other(RawServer::answering(httpReply(200, std::string(500, 'x'))));
    Outcome without;
    Outcome apart;
    Outcome with;
    for (int round = 0; round < rounds; ++round) {
        without += measured(certificate, other.url(), "", 0, pause);
        apart += measured(certificate, other.url(), flooding.url(), flood.connections, pause,
                          Transports::apart);
        with += measured(certificate, other.url(), flooding.url(), flood.connections, pause);
    }
    const auto percentOf = [&](const Outcome& base) {
        return 100.0 * static_cast<double>(with.replies) / static_cast<double>(base.replies);
    };
    std::printf(
        "%-22s others %6zu -> %6zu (%3.0f %%, of the rate with two transports %3.0f %%, %zu "
        "failed, "
        "slowest %5.1f ms); %zu floods, the longest %5.1f ms, limit %d ms\n",
        std::string(flood.name).c_str(), without.replies, with.replies, percentOf(without),
        percentOf(apart), with.failures, with.slowest, with.floods, with.floodSlowest,
        static_cast<int>(floodLimit.count()));
    std::fflush(stdout);
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 2) return 2;
    const std::chrono::milliseconds pause(std::stoi(arguments[1]));
    const std::span names(arguments + 2, static_cast<std::size_t>(count - 2));
    const auto isMeant = [&](std::string_view name) {
        return names.empty() || std::ranges::find(names, name, [](const char* each) {
                                    return std::string_view(each);
                                }) != names.end();
    };
    for (const auto& flood : floods())
        if (isMeant(flood.name)) measure(flood, pause);
}
