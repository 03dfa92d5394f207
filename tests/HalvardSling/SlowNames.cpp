// The name lookup of this test program, libcurl's too: "slow.test" is looked up for as long as a
// `SlowNameLookup` lives, every other name is the system's business.

#include "SlowNames.hpp"

#include <condition_variable>
#include <dlfcn.h>
#include <mutex>
#include <netdb.h>
#include <string_view>

namespace TestSupport {

namespace {

std::mutex mutex;
std::condition_variable changed;
Tally* begun = nullptr;

void lookUpSlowly() {
    std::unique_lock lock(mutex);
    if (begun != nullptr) begun->add();
    changed.wait(lock, [] { return begun == nullptr; });
}

}  // namespace

SlowNameLookup::SlowNameLookup() {
    const std::scoped_lock lock(mutex);
    begun = &begun_;
}

SlowNameLookup::~SlowNameLookup() {
    const std::scoped_lock lock(mutex);
    begun = nullptr;
    changed.notify_all();
}

}  // namespace TestSupport

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** result) {
    if (name != nullptr && std::string_view(name) == "slow.test") {
        TestSupport::lookUpSlowly();
        return EAI_NONAME;
    }
    static const auto original =
        reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return original(name, service, hints, result);
}
