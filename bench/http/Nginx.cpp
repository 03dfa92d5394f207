#include "http/Nginx.hpp"

#include <filesystem>
#include <stdexcept>

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
        root DIRECTORY/files;
        location = /v1/large { sendfile on; }
    }
}
)";

}  // namespace

Nginx::Nginx() {
    for (int attempt = 0; attempt < 5; ++attempt)
        if (start()) return;
    throw std::runtime_error("nginx (Debian's package nginx-light) cannot be run: " +
                             program_->errors());
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
    TestSupport::write(directory_ / "settings",
                       replaced(text, "DIRECTORY", directory_.path().string()));
}

bool Nginx::start() {
    port_ = TestSupport::freePort();
    securePort_ = TestSupport::freePort();
    writeFiles();
    // setpriv: where this program is killed, the service ends with it.
    program_ = std::make_unique<TestSupport::Program>(
        std::vector<std::string>{SETPRIV, "--pdeathsig", "KILL", NGINX, "-e", "stderr", "-c",
                                 (directory_ / "settings").string()});
    return TestSupport::waitUntilListening(port_) && TestSupport::waitUntilListening(securePort_);
}

}  // namespace Bench
