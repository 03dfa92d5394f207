#include "household/PlainRequests.hpp"

#include <cstddef>
#include <stdexcept>
#include <utility>

#include <HalvardSling/http/RequestID.hpp>

#include "http/HistoryService.hpp"

namespace Bench {

namespace {

struct ListFree {
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};

/// The text in quotes that follows a key of a JSON text.
std::string textAfter(const std::string& text, const std::string& key) {
    const std::size_t at = text.find('"' + key + '"');
    if (at == std::string::npos) throw std::runtime_error("there is no " + key);
    const std::size_t begin = text.find('"', at + key.size() + 2) + 1;
    return text.substr(begin, text.find('"', begin) - begin);
}

std::size_t keep(char* data, std::size_t, std::size_t size, void* text) {
    static_cast<std::string*>(text)->append(data, size);
    return size;
}

}  // namespace

PlainRequests::PlainRequests(const HomeService& service)
    : origin_(service.origin()),
      certificateFile_(service.certificateFile()),
      secret_(textAfter(service.configuration(), "X-Household-Secret")) {
    setUp();
}

void PlainRequests::setUp() {
    easy_.reset(curl_easy_init());
    curl_easy_setopt(easy_.get(), CURLOPT_CAINFO, certificateFile_.c_str());
    curl_easy_setopt(easy_.get(), CURLOPT_USERAGENT, HistoryHeaders::userAgent);
    curl_easy_setopt(easy_.get(), CURLOPT_ACCEPT_ENCODING, "gzip");
    curl_easy_setopt(easy_.get(), CURLOPT_WRITEFUNCTION, &keep);
    curl_easy_setopt(easy_.get(), CURLOPT_WRITEDATA, &reply_);
}

void PlainRequests::disconnect() {
    setUp();
}

void PlainRequests::bind() {
    const std::string body = R"({"profileId":"parent"})";
    if (!send("POST", "/v1/binds?profile=parent&v=1", &body, "X-Household-Secret: " + secret_))
        throw std::runtime_error("no bind can be had");
    token_ = "Authorization: JWT " + textAfter(reply_, "token");
}

bool PlainRequests::get(const std::string& target) {
    return send("GET", target, nullptr, token_);
}

bool PlainRequests::put(const std::string& target, const std::string& body) {
    return send("PUT", target, &body, token_);
}

bool PlainRequests::send(const char* method, const std::string& target, const std::string* body,
                         const std::string& authorisation) {
    const std::string identifier =
        "X-Request-ID: " + std::string(HalvardSling::RequestID::random().text());
    std::unique_ptr<curl_slist, ListFree> headers;
    const auto add = [&headers](const std::string& line) {
        headers.reset(curl_slist_append(headers.release(), line.c_str()));
    };
    for (const auto& line : {authorisation, std::string("PXRO-PROFILE-ID: parent"),
                             std::string("Accept: application/json"), identifier})
        add(line);
    if (body) add("Content-Type: application/json");
    curl_easy_setopt(easy_.get(), CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(easy_.get(), CURLOPT_CUSTOMREQUEST, method);
    if (body) curl_easy_setopt(easy_.get(), CURLOPT_COPYPOSTFIELDS, body->c_str());
    curl_easy_setopt(easy_.get(), CURLOPT_URL, (origin_ + target).c_str());
    curl_easy_setopt(easy_.get(), CURLOPT_HTTPHEADER, headers.get());
    reply_.clear();
    long status = 0;
    const CURLcode result = curl_easy_perform(easy_.get());
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    return result == CURLE_OK && status > 0 && status < 400;
}

}  // namespace Bench
