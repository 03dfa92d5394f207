// Ends by an exception that nobody catches, in one of several ways. What it writes to its standard
// error is what UncaughtTest.cpp looks at.

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

#include <rxcpp/operators/rx-map.hpp>

#include <HalvardSling/rx/Sling.hpp>
#include <HalvardSling/transport/Transport.hpp>

using namespace HalvardSling;

namespace {

/// Answers on a thread of its own.
class ThreadTransport final : public Transport {
  public:
    explicit ThreadTransport(TransportResult result) : result_(std::move(result)) {}
    TransferID send(CheckedRequest, TransportCompletion completion) override {
        std::thread([result = result_, completion = std::move(completion)] {
            completion(result);
        }).detach();
        return 1;
    }
    void cancel(TransferID) noexcept override {}

  private:
    TransportResult result_;
};

[[noreturn]] void fail(const char* text) {
    throw std::runtime_error(text);
}

void ignore(const std::exception_ptr&) {}

void subscribe(const std::string& way, const Observable<Response>& responses) {
    const std::map<std::string, std::function<void()>> ways{
        {"value", [&] { responses.subscribe([](const Response&) { fail("of the value"); }); }},
        {"completion",
         [&] {
             responses.subscribe([](const Response&) {}, &ignore, [] { fail("of completion"); });
         }},
        {"error",
         [&] {
             responses.subscribe([](const Response&) {},
                                 [](const std::exception_ptr&) { fail("of the error"); });
         }},
        {"missing", [&] { responses.subscribe([](const Response&) {}); }},
        {"missing-mapped",
         [&] {
             responses.map([](const Response& each) { return each.status(); }).subscribe([](int) {
             });
         }},
    };
    ways.at(way)();
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) return 2;
    const std::string outcome = arguments[1];
    TransportRequest request;
    request.url = outcome == "unsendable" ? "none" : "https://example.test/";
    const SlingError error(SlingErrorKind::tls, "of the transfer");
    const auto transport = std::make_shared<ThreadTransport>(
        outcome == "reply"
            ? TransportResult(Response(
                  {.status = 200, .headers = {}, .body = {}, .effectiveURL = {}, .timings = {}}))
            : error);
    subscribe(arguments[2], Sling(request).responses(transport));
    while (true)
        ::pause();  // another thread ends the program
}
