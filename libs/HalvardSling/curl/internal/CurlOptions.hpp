#pragma once

#include <curl/curl.h>

namespace HalvardSling::internal {

/// Sets options of one of libcurl's easy handles and remembers whether one of those that matter was
/// refused.
class CurlOptions {
  public:
    explicit CurlOptions(CURL* easy) : easy_(easy) {}

    template <class Value>
    void operator()(CURLoption option, Value value) {
        fail(curl_easy_setopt(easy_, option, value));
    }

    /// For what a libcurl that was built without it can do without.
    template <class Value>
    void ifAvailable(CURLoption option, Value value) {
        curl_easy_setopt(easy_, option, value);
    }

    void fail(CURLcode code) {
        if (result_ == CURLE_OK) result_ = code;
    }

    /// The first refusal, or CURLE_OK.
    [[nodiscard]] CURLcode result() const { return result_; }

  private:
    CURL* easy_;
    CURLcode result_ = CURLE_OK;
};

}  // namespace HalvardSling::internal
