#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <curl/curl.h>

#include "http/InFlight.hpp"

namespace Bench {

/// libcurl's multi interface as a careful program uses it by hand: easy handles that are set up
/// once and used again, a kept connection for each, replies received into texts that the caller
/// keeps. Nothing is decoded.
class PlainCurl {
  public:
    struct Settings {
        std::string url;
        std::size_t places = 1;  ///< how many transfers are in flight at most
        std::string certificateFile{};
    };
    /// Told of each reply: its place and its text, empty where there was no reply with status 200.
    using OnReply = std::function<void(std::size_t place, std::string text)>;

    explicit PlainCurl(const Settings& settings);

    void start(std::size_t place);
    /// Lets libcurl do what there is to do.
    void perform(const OnReply& onReply);
    /// Sleeps until there is something to do, or `wake`.
    void wait();
    /// From any thread.
    void wake();

    /// One transfer on the calling thread with the easy interface, which needs no other one.
    /// @return the text of the reply; empty where there was none with status 200
    [[nodiscard]] std::string getEasily();

    /// Runs so many transfers on the calling thread; the end of one starts the next.
    void run(std::size_t total, Latencies& latencies);

  private:
    struct EasyCleanup {
        void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
    };
    struct MultiCleanup {
        void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
    };
    struct ListFree {
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };
    struct Place {
        std::string text;
        std::unique_ptr<CURL, EasyCleanup> easy;
    };

    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* place);
    void setUp(Place& place, const Settings& settings) const;
    [[nodiscard]] std::size_t placeOf(CURL* easy) const;
    [[nodiscard]] std::string takeReply(std::size_t place, CURLcode result);

    std::unique_ptr<curl_slist, ListFree> headers_;
    std::unique_ptr<CURLM, MultiCleanup> multi_;
    std::vector<Place> places_;
};

/// A thread that drives a `PlainCurl` with one place for the thread that calls.
class PlainCurlThread {
  public:
    explicit PlainCurlThread(const PlainCurl::Settings& settings);
    PlainCurlThread(const PlainCurlThread&) = delete;
    PlainCurlThread(PlainCurlThread&&) = delete;
    PlainCurlThread& operator=(const PlainCurlThread&) = delete;
    PlainCurlThread& operator=(PlainCurlThread&&) = delete;
    ~PlainCurlThread();

    /// The text of the reply; empty where there was none.
    [[nodiscard]] std::string get();

  private:
    enum class Order { none, get, end };

    void drive();
    void give(Order order);
    [[nodiscard]] Order takeOrder();

    PlainCurl curl_;
    std::mutex mutex_;
    Order order_ = Order::none;
    Handover<std::string> reply_;
    std::thread thread_;
};

}  // namespace Bench
