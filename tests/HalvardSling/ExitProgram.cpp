// Ends in one of several ways while the default transport is in some state. Exits with 0 if nothing
// went wrong; a completion that should not have been called ends it with another code.
// Usage: PROGRAM WAY URL. The URL is that of a server that answers everything but "/silent", and
// "/after/N" once there were so many of those.

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/rx/Sling.hpp>

#include "support/SystemCalls.hpp"
#include "support/Waiting.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

std::string server;

TransportRequest request(const std::string& path = "/") {
    TransportRequest result;
    result.url = server + path;
    result.policy.allowsCleartext = true;
    return result;
}

CheckedRequest checkedRequest() {
    return std::get<CheckedRequest>(CheckedRequest::of(request()));
}

[[noreturn]] void complain() {
    std::_Exit(7);
}

/// Begins a transfer whose completion must not be called.
void leaveOpen() {
    Sling(request("/silent"))
        .responses()
        .subscribe([](const Response&) { complain(); },
                   [](const std::exception_ptr&) { complain(); }, [] { complain(); });
}

/// Without Rx: RxCpp keeps a queue for each thread, which the main one has lost when a global's
/// destructor runs.
void awaitReply(const std::string& path = "/",
                const std::shared_ptr<Transport>& transport = defaultTransport()) {
    std::promise<bool> done;
    transport->send(std::get<CheckedRequest>(CheckedRequest::of(request(path))),
                    [&](const TransportResult& result) {
                        done.set_value(std::holds_alternative<Response>(result));
                    });
    if (!done.get_future().get()) complain();
}

/// Waits until the server has so many of the open requests.
void awaitOpen(int count) {
    awaitReply("/after/" + std::to_string(count), std::make_shared<CurlTransport>());
}

void unused() {}

void made() {
    static_cast<void>(defaultTransport());
}

void idle() {
    awaitReply();
}

void replaced() {
    awaitReply();
    setDefaultTransport(std::make_shared<CurlTransport>());
    awaitReply();
}

void open() {
    leaveOpen();
    awaitOpen(1);
}

void manyOpen() {
    for (int i = 0; i < 1000; ++i)
        leaveOpen();
    awaitOpen(64);
}

void replacedOpen() {
    setDefaultTransport(std::make_shared<CurlTransport>());
    open();
}

/// Somebody else's global also holds the transport.
std::shared_ptr<Transport> keeper;
void keptOpen() {
    keeper = defaultTransport();
    open();
}

/// The completion itself ends the program.
void inCompletion() {
    Sling(request()).responses().subscribe([](const Response&) { std::exit(0); });
    std::promise<void>().get_future().wait_for(patience);
    complain();
}

/// A transport is destroyed from inside a completion, and its thread has much to end.
void orphan() {
    static std::shared_ptr<Transport> transport = std::make_shared<CurlTransport>();
    static std::promise<void> allSent;
    static std::promise<void> destroyed;
    for (int i = 0; i < 1000; ++i)
        transport->send(checkedRequest(), [i](const TransportResult&) {
            if (i > 0) return;
            allSent.get_future().wait();
            transport.reset();
            destroyed.set_value();
        });
    allSent.set_value();
    destroyed.get_future().wait();
}

/// A completion that runs is waited for at the exit.
struct LongCompletion {
    ~LongCompletion() {
        if (hasBegun && !hasEnded) complain();
    }
    std::atomic<bool> hasBegun{false};
    std::atomic<bool> hasEnded{false};
} longCompletion;

void duringCompletion() {
    static std::promise<void> running;
    static std::promise<void> exiting;
    Sling(request()).responses().subscribe([main = thisThread()](const Response&) {
        longCompletion.hasBegun = true;
        running.set_value();
        exiting.get_future().wait();
        if (!eventually([=] { return isWaiting(main); })) complain();
        longCompletion.hasEnded = true;
    });
    running.get_future().wait();
    static_cast<void>(std::atexit([] { exiting.set_value(); }));
}

/// Every completion begins the next transfer, on several lines, up to the end.
void busy() {
    static Tally completed;
    static const std::function<void()> again = [] {
        Sling(request()).responses().subscribe([](const Response&) { completed.add(); },
                                               [](const std::exception_ptr&) { complain(); },
                                               [] { again(); });
    };
    for (int i = 0; i < 16; ++i)
        again();
    if (!completed.reaches(200)) complain();
}

/// A global's destructor still uses the default transport, also a new one.
struct LateUser {
    ~LateUser() {
        if (!wants) return;
        for (int i = 0; i < 2; ++i) {
            defaultTransport()->send(checkedRequest(), [](const TransportResult&) { complain(); });
            setDefaultTransport(nullptr);
        }
        // An answer to those would have come before this one.
        awaitReply("/", std::make_shared<CurlTransport>());
    }
    bool wants = false;
} lateUser;

void lateUse() {
    lateUser.wants = true;
    awaitReply();
}

}  // namespace

int main(int count, char** arguments) {
    const std::map<std::string, void (*)()> ways{{"unused", &unused},
                                                 {"made", &made},
                                                 {"idle", &idle},
                                                 {"replaced", &replaced},
                                                 {"open", &open},
                                                 {"many-open", &manyOpen},
                                                 {"replaced-open", &replacedOpen},
                                                 {"kept-open", &keptOpen},
                                                 {"in-completion", &inCompletion},
                                                 {"during-completion", &duringCompletion},
                                                 {"busy", &busy},
                                                 {"orphan", &orphan},
                                                 {"late-use", &lateUse}};
    if (count != 3 || !ways.contains(arguments[1])) return 2;
    server = arguments[2];
    ways.at(arguments[1])();
    return 0;
}
