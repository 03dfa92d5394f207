#include "http/Nginx.hpp"

#include <filesystem>
#include <sched.h>
#include <stdexcept>
#include <utility>
#include <vector>

#include "support/ListText.hpp"
#include "support/Ports.hpp"

namespace Bench {

namespace {

std::string largeText() {
    const std::size_t entryBytes = listText(1001).size() - listText(1).size();
    return listText(largeBytes * 1000 / entryBytes);
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

cpu_set_t allowedCores() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    sched_getaffinity(0, sizeof cores, &cores);
    return cores;
}

/// The core that nginx has for itself; absent where there is only one.
std::optional<int> ownCore() {
    const cpu_set_t cores = allowedCores();
    int last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(last, &cores))
        --last;
    return CPU_COUNT(&cores) > 1 ? std::optional(last) : std::nullopt;
}

void leave(int core) {
    cpu_set_t cores = allowedCores();
    CPU_CLR(core, &cores);
    sched_setaffinity(0, sizeof cores, &cores);
}

constexpr const char* settings = R"(
daemon off;
master_process off;
worker_processes 1;
pid DIRECTORY/pid;
events { worker_connections 4096; }
http {
    access_log off;
    default_type application/json;
    keepalive_requests 1000000000;
    keepalive_timeout 3600s;
    open_file_cache max=16;
    client_body_temp_path DIRECTORY/temporary;
    proxy_temp_path DIRECTORY/temporary;
    fastcgi_temp_path DIRECTORY/temporary;
    scgi_temp_path DIRECTORY/temporary;
    uwsgi_temp_path DIRECTORY/temporary;
    server {
        listen 127.0.0.1:SECUREPORT ssl http2;
        listen 127.0.0.1:PORT;
        ssl_certificate CERTIFICATE;
        ssl_certificate_key KEY;
        ssl_protocols TLSv1.2 TLSv1.3;
        root DIRECTORY/files;
        location = /v1/large { sendfile on; }
        LOCATIONS
    }
}
)";

}  // namespace

Nginx::Nginx(std::string locations) : locations_(std::move(locations)) {
    const auto core = ownCore();
    bool isListening = false;
    for (int attempt = 0; attempt < 5 && !isListening; ++attempt)
        isListening = start(core);
    if (!isListening)
        throw std::runtime_error("nginx (Debian's package nginx-light) cannot be run: " +
                                 program_->errors());
    if (core) leave(*core);
}

std::string Nginx::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::string Nginx::secureURL(const std::string& path) const {
    return "https://localhost:" + std::to_string(securePort_) + path;
}

void Nginx::writeFiles() const {
    std::filesystem::create_directories(directory_ / "files/v1");
    TestSupport::write(directory_ / "files/v1/history", listText(1));
    TestSupport::write(directory_ / "files/v1/large", largeText());
    std::string text = settings;
    text = replaced(text, "SECUREPORT", std::to_string(securePort_));
    text = replaced(text, "PORT", std::to_string(port_));
    text = replaced(text, "CERTIFICATE", certificate_.certificateFile());
    text = replaced(text, "KEY", certificate_.keyFile());
    text = replaced(text, "LOCATIONS", locations_);
    TestSupport::write(directory_ / "settings",
                       replaced(text, "DIRECTORY", directory_.path().string()));
}

bool Nginx::start(std::optional<int> core) {
    port_ = TestSupport::freePort();
    securePort_ = TestSupport::freePort();
    writeFiles();
    std::vector<std::string> words;
    if (core) words = {"taskset", "--cpu-list", std::to_string(*core)};
    // setpriv: where this program is killed, the service ends with it.
    for (const std::string word : {SETPRIV, "--pdeathsig", "KILL", NGINX, "-e", "stderr", "-c"})
        words.push_back(word);
    words.push_back((directory_ / "settings").string());
    program_ = std::make_unique<TestSupport::Program>(std::move(words));
    return TestSupport::waitUntilListening(port_) && TestSupport::waitUntilListening(securePort_);
}

}  // namespace Bench
