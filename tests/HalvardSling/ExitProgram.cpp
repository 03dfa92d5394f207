// Ends in one of several ways while the default transport is in some state. Exits with 0 where
// nothing went wrong; a completion that should not have been called ends it with another code.

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/rx/Sling.hpp>

using namespace HalvardSling;

namespace {

std::string url;

TransportRequest request() {
    TransportRequest result;
    result.url = url;
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
    Sling(request()).responses().subscribe([](const Response&) { complain(); },
                                           [](const std::exception_ptr&) { complain(); },
                                           [] { complain(); });
}

void awaitReply() {
    std::promise<void> done;
    Sling(request()).responses().subscribe([](const Response&) {},
                                           [](const std::exception_ptr&) { complain(); },
                                           [&] { done.set_value(); });
    done.get_future().wait();
}

void aMoment() {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
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
    aMoment();
}

void manyOpen() {
    for (int i = 0; i < 1000; ++i)
        leaveOpen();
    aMoment();
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
    std::this_thread::sleep_for(std::chrono::seconds(10));
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

/// A completion runs, longer than the program.
void duringCompletion() {
    static std::promise<void> running;
    Sling(request()).responses().subscribe([](const Response&) {
        running.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    });
    running.get_future().wait();
}

/// Every completion begins the next transfer, on several lines, up to the end.
void busy() {
    static const std::function<void()> again = [] {
        Sling(request()).responses().subscribe(
            [](const Response&) {}, [](const std::exception_ptr&) { complain(); }, [] { again(); });
    };
    for (int i = 0; i < 16; ++i)
        again();
    aMoment();
}

/// A global's destructor still uses the default transport, also a new one.
struct LateUser {
    ~LateUser() {
        if (!wants) return;
        for (int i = 0; i < 2; ++i) {
            defaultTransport()->send(checkedRequest(), [](const TransportResult&) { complain(); });
            setDefaultTransport(nullptr);
        }
        aMoment();
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
    url = arguments[2];
    ways.at(arguments[1])();
    return 0;
}
