#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <HalvardSling/curl/CurlTransport.hpp>
#include <HalvardSling/http/Response.hpp>
#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/http/TransportRequest.hpp>
#include <HalvardSling/json/JSONDictionary.hpp>
#include <HalvardSling/rx/Future.hpp>
#include <HalvardSling/rx/Sling.hpp>
#include <KestrinProfileTesting/Fault.hpp>
#include <KestrinProfileTesting/Journal.hpp>

namespace KestrinProfileTesting {

/// The admin interface of a development service, for tests. Calls wait for their answer, on any
/// thread but a transport's, and throw `std::runtime_error` with what the service says if it
/// refuses, or a `HalvardSling::SlingError` if it does not answer. It has a transport of its own,
/// so an application's default transport may be anything.
class AdminClient {
  public:
    /// @param baseURL  the service's address, or a namespace's, e.g.
    /// "http://127.0.0.1:8480/n/run-7"
    /// @param secret   what --admin-secret-file holds; empty: none
    explicit AdminClient(std::string baseURL, std::string secret = {})
        : baseURL_(std::move(baseURL)), secret_(std::move(secret)) {}

    /// The address that was given.
    [[nodiscard]] const std::string& baseURL() const noexcept { return baseURL_; }

    /// Sends a request.
    /// @param method  e.g. "POST"
    /// @param target  below /admin/v1/, e.g. "snapshots/before"; already escaped
    /// @param body    JSON; empty: none
    /// @return the answer's text; empty if it has none
    std::string send(std::string_view method, std::string_view target,
                     std::string_view body = {}) const {
        HalvardSling::TransportRequest request;
        request.method = method;
        request.url = baseURL_ + "/admin/v1/" + std::string(target);
        request.policy.allowsCleartext = true;
        request.policy.totalTimeout = patience;
        request.policy.maxBodyBytes = mostBytes;
        if (!secret_.empty()) request.headers.set("Authorization", "Bearer " + secret_);
        if (!body.empty()) {
            request.headers.set("Content-Type", "application/json");
            request.body = std::make_shared<const std::string>(body);
        }
        const HalvardSling::Sling sling(std::move(request));
        try {
            return std::string(
                HalvardSling::toFuture<HalvardSling::Response>(sling.responses(transport_))
                    .get()
                    .body());
        } catch (const HalvardSling::SlingError& error) {
            if (error.problem() == nullptr) throw;
            throw std::runtime_error(std::string(error.what()) + ": " + error.problem()->detail);
        }
    }

    /// The same for an answer that is a JSON object.
    HalvardSling::JSONDictionary ask(std::string_view method, std::string_view target,
                                     std::string_view body = {}) const {
        auto parsed = HalvardSling::JSONDictionary::parse(send(method, target, body));
        if (auto* const object = std::get_if<HalvardSling::JSONDictionary>(&parsed))
            return std::move(*object);
        throw std::runtime_error("the answer is no JSON object: " +
                                 std::get<HalvardSling::JSONFailure>(parsed).text());
    }

    /// The configuration with which clients reach the service, for a file or `parseConfiguration`.
    [[nodiscard]] std::string clientConfiguration() const {
        return send("GET", "client-configuration");
    }

    /// Replaces all households.
    /// @param json  a seed; docs/service.md says what one holds
    void replaceState(std::string_view json) const { send("PUT", "state", json); }
    /// Adds what a seed describes; a profile that is there is replaced.
    void addState(std::string_view json) const { send("POST", "state", json); }
    /// All households as a seed.
    [[nodiscard]] std::string state() const { return send("GET", "state"); }
    /// Makes everything as it was at the start: households, faults, journal, clock.
    void reset() const { send("POST", "reset"); }
    /// Applies a ready scenario, e.g. "outage" or "five-profiles".
    void apply(std::string_view scenario) const {
        send("POST", "scenarios/" + std::string(scenario));
    }

    /// Refuses a profile's requests, or no longer.
    void block(std::string_view profileID, bool isBlocked = true) const {
        HalvardSling::JSONDictionary body;
        body.setBoolean("blocked", isBlocked);
        send("PUT", "profiles/" + std::string(profileID) + "/blocked", body.toJSON());
    }

    /// Sets one fault more.
    void add(const Fault& fault) const { send("POST", "faults", fault.rule().toJSON()); }
    /// Ends all faults.
    void endFaults() const { send("DELETE", "faults"); }

    /// Moves the clock that tokens and time stamps follow.
    void advanceClock(std::chrono::seconds time) const {
        HalvardSling::JSONDictionary body;
        body.setInteger("seconds", time.count());
        send("POST", "clock/advance", body.toJSON());
    }

    /// How many requests came.
    [[nodiscard]] std::size_t count(const Requests& requests) const {
        return numberIn(ask("POST", "journal/count", requests.filter().toJSON()), "count");
    }

    /// Whether as many requests came as expected, and if not, which were nearly right.
    [[nodiscard]] Verification verified(const Requests& requests, Expected expected) const {
        HalvardSling::JSONDictionary body = requests.filter();
        body.setInteger(expected.bound, static_cast<std::int64_t>(expected.count));
        const auto answer = ask("POST", "journal/verify", body.toJSON());
        Verification result;
        result.isSatisfied = answer.boolean("satisfied").value_or(false);
        result.count = numberIn(answer, "count");
        result.text = "expected " + std::string(answer.text("expected").value_or("")) + ", found " +
                      std::to_string(result.count) + " of " + requests.filter().toJSON() +
                      nearMissesOf(answer);
        return result;
    }

    /// Waits until requests have come; those that are there count.
    /// @param requests  which
    /// @param count     how many
    /// @param time      how long; 3600 s at most
    /// @return whether they came in time
    [[nodiscard]] bool waitFor(const Requests& requests, std::size_t count = 1,
                               std::chrono::seconds time = std::chrono::seconds(10)) const {
        HalvardSling::JSONDictionary body = requests.filter();
        body.setInteger("count", static_cast<std::int64_t>(count));
        body.setInteger("timeoutSeconds", time.count());
        return ask("POST", "journal/wait", body.toJSON()).boolean("satisfied").value_or(false);
    }

    /// Forgets all requests.
    void forgetRequests() const { send("DELETE", "journal"); }

    /// Makes a namespace, a world of its own in the same service: for a test that runs beside
    /// others.
    /// @param name  1 to 64 of A-Z, a-z, 0-9, ".", "_" and "-"
    /// @param seed  its households; empty: those that the service began with
    [[nodiscard]] AdminClient addNamespace(std::string_view name,
                                           std::string_view seed = {}) const {
        HalvardSling::JSONDictionary quoted;
        quoted.setText("name", name);
        std::string body = quoted.toJSON();
        if (!seed.empty()) body.insert(body.size() - 1, ",\"seed\":" + std::string(seed));
        const auto made = ask("POST", "namespaces", body);
        return AdminClient(std::string(made.text("baseUrl").value_or("")), secret_);
    }
    /// Deletes a namespace with all that it has.
    void deleteNamespace(std::string_view name) const {
        send("DELETE", "namespaces/" + std::string(name));
    }

  private:
    // Longer than any wait of the service's.
    static constexpr std::chrono::hours patience{2};
    static constexpr std::size_t mostBytes = std::size_t{64} << 20U;

    static std::size_t numberIn(const HalvardSling::JSONDictionary& answer, std::string_view key) {
        return static_cast<std::size_t>(answer.integer(key).value_or(0));
    }

    static std::string textIn(const HalvardSling::JSONDictionary& record, std::string_view key) {
        return std::string(record.text(key).value_or("nothing"));
    }

    static std::string nearMissesOf(const HalvardSling::JSONDictionary& answer) {
        std::string text;
        const auto misses = answer.dictionaries("nearMisses");
        if (!misses) return text;
        for (const auto& miss : *misses) {
            const auto entry = miss.dictionary("entry").value_or(HalvardSling::JSONDictionary());
            text += "\nnear miss: entry " + std::to_string(entry.integer("id").value_or(0)) + ", " +
                    textIn(entry, "method") + " " + textIn(entry, "target");
            if (const auto differences = miss.dictionaries("differences"))
                for (const auto& difference : *differences)
                    text += "\n  " + textIn(difference, "field") + ": expected " +
                            textIn(difference, "expected") + ", was " +
                            textIn(difference, "actual");
        }
        return text;
    }

    std::string baseURL_;
    std::string secret_;
    std::shared_ptr<HalvardSling::Transport> transport_ =
        std::make_shared<HalvardSling::CurlTransport>(HalvardSling::CurlTransport::Options());
};

}  // namespace KestrinProfileTesting
