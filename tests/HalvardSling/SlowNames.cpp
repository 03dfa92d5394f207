// The name lookup of this test program, libcurl's too: "slow.test" takes eight seconds and does not
// exist, every other name is the system's business.

#include <chrono>
#include <dlfcn.h>
#include <netdb.h>
#include <string_view>
#include <thread>

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** result) {
    if (name != nullptr && std::string_view(name) == "slow.test") {
        std::this_thread::sleep_for(std::chrono::seconds(8));
        return EAI_NONAME;
    }
    static const auto original =
        reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    return original(name, service, hints, result);
}
