#include "http/PlainCurl.hpp"

#include <algorithm>
#include <initializer_list>
#include <utility>

#include "http/HistoryService.hpp"

namespace Bench {

namespace {

constexpr long receiveBufferBytes = 256L * 1024;
constexpr int longestSleepMilliseconds = 1000;
// The library's own limits.
constexpr long connectTimeoutMilliseconds = 10'000;
constexpr long totalTimeoutMilliseconds = 30'000;

}  // namespace

PlainCurl::PlainCurl(const Settings& settings)
    : multi_(curl_multi_init()), places_(settings.places) {
    const std::string token = std::string("Authorization: JWT ") + HistoryHeaders::token;
    const std::string profile = std::string("PXRO-PROFILE-ID: ") + HistoryHeaders::profileID;
    for (const char* line : {token.c_str(), profile.c_str(), "Accept: application/json"})
        headers_.reset(curl_slist_append(headers_.release(), line));
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, static_cast<long>(settings.places));
    for (auto& place : places_)
        setUp(place, settings);
}

void PlainCurl::setUp(Place& place, const Settings& settings) const {
    place.easy.reset(curl_easy_init());
    CURL* const easy = place.easy.get();
    curl_easy_setopt(easy, CURLOPT_URL, (settings.url + HistoryHeaders::query).c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_.get());
    curl_easy_setopt(easy, CURLOPT_USERAGENT, HistoryHeaders::userAgent);
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "gzip");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, connectTimeoutMilliseconds);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, totalTimeoutMilliseconds);
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, receiveBufferBytes);
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &PlainCurl::onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &place);
    if (settings.certificateFile.empty()) return;
    curl_easy_setopt(easy, CURLOPT_PIPEWAIT, 1L);
    curl_easy_setopt(easy, CURLOPT_CAINFO, settings.certificateFile.c_str());
}

std::size_t PlainCurl::onBody(char* data, std::size_t, std::size_t size, void* place) {
    auto& [text, easy] = *static_cast<Place*>(place);
    if (text.empty()) {
        curl_off_t announced = 0;
        curl_easy_getinfo(easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
        if (announced > 0) text.reserve(static_cast<std::size_t>(announced));
    }
    text.append(data, size);
    return size;
}

void PlainCurl::start(std::size_t place) {
    curl_multi_add_handle(multi_.get(), places_[place].easy.get());
}

void PlainCurl::perform(const OnReply& onReply) {
    int running = 0;
    int left = 0;
    curl_multi_perform(multi_.get(), &running);
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
        CURL* const easy = message->easy_handle;
        const CURLcode result = message->data.result;
        curl_multi_remove_handle(multi_.get(), easy);
        const std::size_t place = placeOf(easy);
        onReply(place, takeReply(place, result));
    }
}

std::string PlainCurl::takeReply(std::size_t place, CURLcode result) {
    long status = 0;
    curl_easy_getinfo(places_[place].easy.get(), CURLINFO_RESPONSE_CODE, &status);
    std::string text = std::exchange(places_[place].text, {});
    return result == CURLE_OK && status == 200 ? std::move(text) : std::string();
}

std::string PlainCurl::getEasily() {
    return takeReply(0, curl_easy_perform(places_.front().easy.get()));
}

std::size_t PlainCurl::placeOf(CURL* easy) const {
    const auto found = std::ranges::find_if(
        places_, [easy](const Place& place) { return place.easy.get() == easy; });
    return static_cast<std::size_t>(found - places_.begin());
}

void PlainCurl::wait() {
    curl_multi_poll(multi_.get(), nullptr, 0, longestSleepMilliseconds, nullptr);
}

void PlainCurl::wake() {
    curl_multi_wakeup(multi_.get());
}

void PlainCurl::run(std::size_t total, Latencies& latencies) {
    std::vector<Clock::time_point> begun(places_.size());
    std::size_t started = 0;
    std::size_t ended = 0;
    const auto startNext = [&](std::size_t place) {
        if (started == total) return;
        ++started;
        begun[place] = Clock::now();
        start(place);
    };
    for (std::size_t place = 0; place < places_.size(); ++place)
        startNext(place);
    while (ended < total) {
        perform([&](std::size_t place, const std::string& text) {
            latencies.add(Clock::now() - begun[place]);
            if (text.empty()) latencies.addFailure();
            ++ended;
            startNext(place);
        });
        if (ended < total) wait();
    }
}

PlainCurlThread::PlainCurlThread(const PlainCurl::Settings& settings)
    : curl_(settings), thread_([this] { drive(); }) {}

PlainCurlThread::~PlainCurlThread() {
    give(Order::end);
    thread_.join();
}

std::string PlainCurlThread::get() {
    give(Order::get);
    return reply_.take();
}

void PlainCurlThread::give(Order order) {
    {
        const std::scoped_lock lock(mutex_);
        order_ = order;
    }
    curl_.wake();
}

PlainCurlThread::Order PlainCurlThread::takeOrder() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(order_, Order::none);
}

void PlainCurlThread::drive() {
    for (Order order = takeOrder(); order != Order::end; order = takeOrder()) {
        if (order == Order::get) curl_.start(0);
        curl_.perform([this](std::size_t, std::string text) { reply_.put(std::move(text)); });
        curl_.wait();
    }
}

}  // namespace Bench
