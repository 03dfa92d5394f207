// Makes some requests to a server of its own and then does nothing for as many seconds as its
// argument says. It writes a line before and after.

#include <chrono>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <unistd.h>

#include "Transfers.hpp"

namespace {

bool write(std::string_view line) {
    return ::write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

}  // namespace

int main(int count, char** arguments) {
    using namespace TestSupport;
    const RawServer server(RawServer::answering(httpReply(200, "x")));
    const auto transport = curlTransport();
    if (count != 2 || !sent(requestTo(server.url()), transport).completed()) return 1;
    if (!sent(requestTo("http://name.invalid/"), transport).ended()) return 1;
    std::this_thread::sleep_for(std::chrono::seconds(1));
    if (!write("idle from here\n")) return 1;
    std::this_thread::sleep_for(std::chrono::seconds(std::atoi(arguments[1])));
    if (!write("idle to here\n")) return 1;
    return 0;
}
