// Lets the allocations of each operation fail, one after the other and all from one on, from the
// call to the last event. A program of its own, because it replaces the allocation functions.

#include <exception>
#include <new>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/http/SlingError.hpp>
#include <HalvardSling/testing/FakeTransport.hpp>

#include "Operations.hpp"
#include "ServiceFixture.hpp"
#include "support/Allocations.hpp"

namespace {

using HalvardSling::FakeTransport;
using HalvardSling::SlingError;
using testing::AnyOf;
using TestSupport::Failing;
using TestSupport::FailingAllocations;
using TestSupport::SparedAllocations;

/// What came of one operation.
struct Outcome {
    bool hasCallThrown = false;  ///< std::bad_alloc
    bool hasSubscribingThrown = false;
    bool isSent = false;
    int values = 0;
    int completions = 0;
    std::vector<std::string> errors;
    std::optional<KestrinConfigManager::AnonymousBind> bind;  ///< of "other"

    [[nodiscard]] bool hasThrown() const { return hasCallThrown || hasSubscribingThrown; }
    [[nodiscard]] int terminalEvents() const {
        return completions + static_cast<int>(errors.size());
    }
};

std::string nameOf(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const SlingError& known) {
        return std::string(name(known.kind()));
    } catch (const std::bad_alloc&) {
        return "outOfMemory";
    } catch (const std::exception& other) {
        return typeid(other).name() + std::string(": ") + other.what();
    }
}

/// Of which allocations of an operation fail.
struct Fault {
    Failing which;
    long at;
};

/// A reply, and what an operation that succeeds makes of it.
struct Case {
    std::string_view name;
    int status;
    std::string_view contentType;
    std::string_view body;
    std::string_view usual;  ///< the error; empty: none
};

/// For GoogleTest's messages.
void PrintTo(const Case& each, std::ostream* out) {
    *out << each.name;
}

constexpr std::string_view wholeReply =
    R"({"profileId":"other","token":"a.b.c","id":"history","maxSize":500,"username":"Ann",)"
    R"("data":[{"profileId":"other","username":"Ann, who has a name that needs memory"}],)"
    R"("elements":[{"id":"video","type":"VIDEO","progress":1,)"
    R"("autoAddTimestamp":"2017-03-09T18:25:43.511Z"}]})";
constexpr std::string_view problem =
    R"({"type":"urn:problem","title":"No","status":403,"detail":"It may not be done by this one"})";

constexpr Case cases[]{
    {"Reply", 200, "application/json", wholeReply, ""},
    {"Forbidden", 403, "application/problem+json", problem, "httpStatus"},
    {"Missing", 404, "application/problem+json", problem, "httpStatus"},
};

class OperationWithoutMemory : public TestSupport::ServiceFixture,
                               public testing::WithParamInterface<Case> {
  protected:
    /// Everything that happens, anew each time, so that what it leaves can be counted.
    Outcome outcomeOf(const TestSupport::UseOfOperation& operation,
                      const std::optional<Fault>& fault) {
        outcome_ = {};
        fault_ = fault;
        transport = std::make_shared<FakeTransport>();
        transport->willAnswer(GetParam().status, std::string(GetParam().body),
                              {{"Content-Type", std::string(GetParam().contentType)}});
        HalvardSling::setDefaultTransport(transport);
        operation(profile);
        HalvardSling::setDefaultTransport(nullptr);
        outcome_.isSent = !transport->requests().empty();
        transport.reset();
        manager.selectProfile("other");
        outcome_.bind = manager.bind(false);
        holdBinds();
        return std::move(outcome_);
    }

    /// A bind of the parent and one of the profile that acts.
    void holdBinds() {
        manager.dropBinds();
        hold("parent", "the.parents.token");
        hold("kid", "the.kids.token");
        manager.selectProfile("kid");
    }

    /// Calls an operation, and subscribes to it.
    template <class Call>
    void observe(const Call& call) {
        std::optional<FailingAllocations> failing;
        if (fault_) failing.emplace(fault_->which, fault_->at);
        bool hasBeenCalled = false;
        try {
            const auto result = call();
            hasBeenCalled = true;
            result.subscribe([this](const auto&) { ++outcome_.values; },
                             [this](const std::exception_ptr& error) {
                                 const SparedAllocations ours;
                                 outcome_.errors.push_back(nameOf(error));
                             },
                             [this] { ++outcome_.completions; });
        } catch (const std::bad_alloc&) {
            (hasBeenCalled ? outcome_.hasSubscribingThrown : outcome_.hasCallThrown) = true;
        }
        if (failing) failing->end();
        hasFailed_ = failing && failing->hasFailed();
    }

    std::vector<TestSupport::UseOfOperation> operations() {
        return TestSupport::usesOfAllOperations([this](const auto& call) { observe(call); });
    }

    static void expectCleanEnd(const Outcome& outcome, Failing which) {
        EXPECT_FALSE(outcome.hasCallThrown && which == Failing::one)
            << "there is memory for an error";
        EXPECT_EQ(outcome.terminalEvents(), outcome.hasThrown() ? 0 : 1);
        EXPECT_FALSE(outcome.hasThrown() && outcome.isSent) << "nobody hears of the reply";
        EXPECT_EQ(outcome.values, outcome.completions);
        for (const auto& error : outcome.errors)
            EXPECT_THAT(error, AnyOf("outOfMemory", std::string(GetParam().usual)));
        if (outcome.bind) {
            EXPECT_EQ(outcome.bind->token, "a.b.c");
        }
    }

    /// The error for a lack of memory is kept from its first use on.
    void makeWhatIsMadeOnce() {
        for (long at = 1; at == 1 || hasFailed_; ++at)
            outcomeOf(operations().front(), Fault{Failing::one, at});
    }

    void failEach(Failing which) {
        holdBinds();
        makeWhatIsMadeOnce();
        int number = 0;
        for (const auto& operation : operations()) {
            SCOPED_TRACE("operation " + std::to_string(number++));
            const Outcome usual = outcomeOf(operation, std::nullopt);
            EXPECT_EQ(usual.bind.has_value(), number == 1 && GetParam().status == 200);
            ASSERT_EQ(usual.terminalEvents(), 1);
            ASSERT_EQ(usual.errors.empty() ? "" : usual.errors.front(), GetParam().usual);
            bool wasLacking = false;
            for (long at = 1;; ++at) {
                SCOPED_TRACE("allocation " + std::to_string(at));
                const long before = TestSupport::blocksInUse();
                {
                    const Outcome outcome = outcomeOf(operation, Fault{which, at});
                    expectCleanEnd(outcome, which);
                    wasLacking |= outcome.hasThrown() ||
                                  outcome.errors == std::vector<std::string>{"outOfMemory"};
                }
                EXPECT_EQ(TestSupport::blocksInUse(), before) << "something is left";
                if (!hasFailed_ || HasFailure()) break;
            }
            EXPECT_TRUE(wasLacking);
        }
        EXPECT_EQ(number, 22);
    }

  private:
    Outcome outcome_;
    std::optional<Fault> fault_;
    bool hasFailed_ = false;
};

TEST_P(OperationWithoutMemory, EndsOnceWhicheverAllocationFails) {
    failEach(Failing::one);
}

TEST_P(OperationWithoutMemory, EndsOnceIfAllFailFromOneOn) {
    failEach(Failing::allFrom);
}

INSTANTIATE_TEST_SUITE_P(Gets, OperationWithoutMemory, testing::ValuesIn(cases),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
