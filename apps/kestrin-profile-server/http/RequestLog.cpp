#include <iostream>
#include <string>

#include <kestrin-profile-server/domain/Text.hpp>
#include <kestrin-profile-server/domain/Timestamp.hpp>
#include <kestrin-profile-server/http/RequestLog.hpp>

namespace KestrinProfileServer {

void RequestLog::add(std::string_view method, std::string_view path, unsigned status,
                     std::chrono::steady_clock::duration duration) const {
    if (isQuiet_) return;
    using namespace std::chrono;
    const auto tenths = duration_cast<microseconds>(duration).count() / 100;
    const std::string line = timestampText(systemTime()) + " " + excerptOf(method) + " " +
                             excerptOf(path) + " " + std::to_string(status) + " " +
                             std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) +
                             " ms\n";
    // One call per line keeps the lines of several threads apart.
    std::cerr.write(line.data(), static_cast<std::streamsize>(line.size()));
}

}  // namespace KestrinProfileServer
