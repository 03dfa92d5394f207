#include <cstddef>
#include <cstdint>
#include <functional>
#include <iostream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include "HouseholdFixture.hpp"
#include "support/Rounds.hpp"

namespace {

using KestrinHousehold::CallOptions;
using TestSupport::HouseholdFixture;
using namespace std::chrono_literals;

constexpr std::size_t profileCount = 3;

/// A household of three profiles, an application that does anything at any time, and a service that
/// answers in any order, refuses tokens from one moment to the next, fails, and sometimes sends the
/// bind of another profile. A token says whose it is, and the brand of a request whose call it was.
class Interleaving : public HouseholdFixture {
  protected:
    /// One random sequence of steps.
    void play(std::uint64_t seed) {
        random_.seed(seed);
        begin();
        const std::size_t steps = 8 + below(12);
        for (std::size_t step = 0; step < steps && mixed_.empty(); ++step)
            doSomething();
        const Household ended(std::move(*home_));
    }

    /// What was sent with the token of another profile than its own; empty: nothing was.
    std::string mixed_;
    std::size_t sent_ = 0;
    std::size_t renewed_ = 0;

  private:
    void begin() {
        // Anew, so that it keeps no million requests.
        transport = std::make_shared<HalvardSling::FakeTransport>();
        HalvardSling::setDefaultTransport(transport);
        manager.dropBinds();
        valid_.clear();
        running_.clear();
        checked_ = 0;
        HouseholdOptions options;
        options.scheduler = scheduler;
        options.random = [this] { return static_cast<double>(below(100)) / 100; };
        options.log = [this](const HouseholdEvent& event) {
            renewed_ += event.kind == HouseholdEvent::Kind::bindRenewed ? 1 : 0;
        };
        home_.emplace(std::move(options));
        for (std::size_t i = 0; i < profileCount; ++i)
            if (below(2) == 0) manager.storeBind({profile(i), issue(profile(i))});
    }

    void doSomething() {
        const auto which = below(16);
        if (which < 6)
            call(profile(below(profileCount)));
        else if (which < 12)
            answerSomething();
        else if (which == 12)
            manager.selectProfile(profile(below(profileCount)));
        else if (which == 13)
            valid_.clear();
        else if (which == 14)
            change();
        else
            leave();
        check();
    }

    /// What an application may do to the binds, or the time to all.
    void change() {
        const std::string any = profile(below(profileCount));
        switch (below(3)) {
            case 0:
                return manager.storeBind({any, issue(any)});
            case 1:
                return manager.dropBinds();
            default:
                scheduler->advance(1s);
        }
    }

    void call(const std::string& profileID) {
        CallOptions options;
        options.brandID = profileID;
        const auto session = home_->session(profileID).with(options);
        switch (below(5)) {
            case 0:
                return run(session.history());
            case 1:
                return run(session.addHistoryVideo("v", 62s));
            case 2:
                return run(session.deleteSearchHistory());
            case 3:
                return run(session.addSearchHistory("text"));
            default:
                return run(session.addFavoriteShow("s"));
        }
    }

    template <class T>
    void run(const HalvardSling::Observable<T>& call) {
        running_.push_back(call.subscribe([](const T&) {}, [](const std::exception_ptr&) {}));
    }

    void leave() {
        if (!running_.empty()) running_[below(running_.size())].unsubscribe();
    }

    void answerSomething() {
        const auto waiting = transport->waiting();
        if (waiting.empty()) return;
        const auto transfer = waiting[below(waiting.size())];
        transport->answer(transfer,
                          answerTo(transport->requests()[static_cast<std::size_t>(transfer - 1)]));
    }

    TransportResult answerTo(const TransportRequest& request) {
        if (below(8) == 0) return reply(503);
        if (isForBind(request)) {
            std::string whose = query(request, "profile");
            if (below(16) == 0) whose = profile(below(profileCount));
            return bindReply(whose, issue(whose));
        }
        return reply(valid_.contains(token(request)) ? 200 : 403);
    }

    void check() {
        const auto requests = transport->requests();
        for (; checked_ < requests.size(); ++checked_) {
            const auto& request = requests[checked_];
            if (isForBind(request)) continue;
            ++sent_;
            const std::string owner = query(request, "brand");
            if (profileID(request) != owner || query(request, "profile") != owner ||
                !token(request).starts_with("JWT " + owner + "."))
                mixed_ = request.operation + " of " + owner + " as " + profileID(request) +
                         " with " + token(request);
        }
    }

    static std::string query(const TransportRequest& request, std::string_view name) {
        const std::string key = std::string(name) + '=';
        const std::size_t at = request.url.find(key);
        if (at == std::string::npos) return {};
        const std::size_t begin = at + key.size();
        return request.url.substr(begin, request.url.find('&', begin) - begin);
    }

    static std::string profile(std::size_t number) { return "p" + std::to_string(number); }

    std::string issue(const std::string& profileID) {
        const std::string token = profileID + '.' + std::to_string(++issued_);
        valid_.insert("JWT " + token);
        return token;
    }

    std::size_t below(std::size_t end) { return random_() % end; }

    std::mt19937_64 random_;
    std::optional<Household> home_;
    std::vector<rxcpp::composite_subscription> running_;
    std::set<std::string> valid_;
    std::size_t issued_ = 0;
    std::size_t checked_ = 0;
};

TEST_F(Interleaving, NoRequestHasOneProfilesIdentifierAndAnothersToken) {
    const std::size_t rounds = TestSupport::roundsOf(1'000);
    for (std::uint64_t seed = 0; seed < rounds; ++seed) {
        play(seed);
        ASSERT_EQ(mixed_, "") << "in round " << seed;
    }
    EXPECT_GT(sent_, 2 * rounds);
    EXPECT_GT(renewed_, rounds / 20) << "of " << sent_ << " requests";
    RecordProperty("rounds", std::to_string(rounds));
    RecordProperty("requests", std::to_string(sent_));
    RecordProperty("renewals", std::to_string(renewed_));
    std::cout << rounds << " rounds, " << sent_ << " requests, " << renewed_ << " renewals\n";
}

}  // namespace
