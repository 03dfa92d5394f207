#pragma once

#include <string>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/rx/Observable.hpp>
#include <KestrinProfile/model/UserProfile.hpp>
#include <KestrinProfile/params/ProfileParams.hpp>

#include "http/InFlight.hpp"

namespace Bench {

/// What every subject sends, so that the service's work is the same.
struct HistoryHeaders {
    static constexpr const char* userAgent = "bench";
    static constexpr const char* profileID = "parent";
    static constexpr const char* token =
        "eyJhbGciOiJIUzI1NiIsInR5cCI6IkpXVCJ9."
        "eyJzdWIiOiJwYXJlbnQiLCJoaCI6ImJlbmNoIiwiaWF0IjoxNzAwMDAwMDAwLCJleHAiOjQxMDI0NDQ4MDB9."
        "MDEyMzQ1Njc4OWFiY2RlZjAxMjM0NTY3ODlhYmNkZWY";
    static constexpr const char* query = "?brand=kestrin&profile=parent&v=1";
};

/// KestrinProfile as an application uses it: configured for the history under a URL, with a default
/// transport of its own while this lives.
class HistoryService {
  public:
    using Options = HalvardSling::CurlTransport::Options;

    /// @param url  without a query, e.g. "http://127.0.0.1:8480/v1/history"
    explicit HistoryService(const std::string& url, Options options = {});
    HistoryService(const HistoryService&) = delete;
    HistoryService(HistoryService&&) = delete;
    HistoryService& operator=(const HistoryService&) = delete;
    HistoryService& operator=(HistoryService&&) = delete;
    ~HistoryService();

    /// The history, not yet subscribed to.
    [[nodiscard]] HalvardSling::Observable<KestrinProfile::UserProfile> history() const;

    /// Subscribes to it. Told whether a decoded list with entries came.
    void request(InFlight::Done done) const;

    /// The same on the calling thread, one at a time.
    [[nodiscard]] bool requestAndWait();

  private:
    KestrinProfile::ProfileParams params_;
    Handover<bool> outcome_;
};

}  // namespace Bench
