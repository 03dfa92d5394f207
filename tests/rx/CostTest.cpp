// How little a chain costs with the bundled subset. A program of its own, whose allocations are
// counted.

#include <cstddef>
#include <exception>
#include <optional>
#include <utility>

#include <rxcpp/operators/rx-map.hpp>
#include <rxcpp/operators/rx-tap.hpp>

#include "RxTestSupport.hpp"
#include "support/Allocations.hpp"

namespace {

using rx_test::subscriber_of_int;
using rxcpp::operators::map;
using rxcpp::operators::tap;
using TestSupport::allocationsSoFar;

/// A value that counts how often it is copied.
class counted {
  public:
    explicit counted(int value) : value_(value) {}
    counted(const counted& other) : value_(other.value_) { ++copies; }
    counted(counted&& other) noexcept = default;
    counted& operator=(const counted&) = delete;
    counted& operator=(counted&&) = delete;
    ~counted() = default;

    int value() const { return value_; }

    static inline int copies = 0;

  private:
    int value_;
};

counted next_of(const counted& value) {
    return counted(value.value() + 1);
}

rxcpp::observable<counted> chain(int start, int& tapped) {
    return rxcpp::observable<>::create<counted>([start](rxcpp::subscriber<counted> to) {
               to.on_next(counted(start));
               to.on_completed();
           }) |
           map([](const counted& value) { return next_of(value); }) |
           map([](counted value) { return value; }) |
           tap([&tapped](const counted& value) { tapped = value.value(); });
}

TEST(RxCost, AnEmittedRvalueIsNeverCopiedOnItsWayThroughAChain) {
    counted::copies = 0;
    int tapped = 0;
    int received = 0;
    chain(1, tapped).subscribe([&received](counted value) { received = value.value(); });
    EXPECT_EQ(tapped, 2);
    EXPECT_EQ(received, 2);
    EXPECT_EQ(counted::copies, 0);
}

TEST(RxCost, AChainCostsOneAllocationToMakeAndTwoToSubscribe) {
    int tapped = 0;
    int received = 0;
    const std::size_t before = allocationsSoFar().blocks;
    const auto source = chain(1, tapped);
    const std::size_t made = allocationsSoFar().blocks;
    source.subscribe([&received](counted value) { received = value.value(); },
                     [](std::exception_ptr) {}, [] {});
    const std::size_t subscribed = allocationsSoFar().blocks;
    EXPECT_EQ(received, 2);
    EXPECT_EQ(made - before, 1U);
    EXPECT_EQ(subscribed - made, 2U);
}

TEST(RxCost, ASubscriptionThatWaitsTakesLittleMemory) {
    std::optional<subscriber_of_int> emitter;
    const rxcpp::observable<int> source =
        rxcpp::observable<>::create<int>([&emitter](subscriber_of_int to) {
            to.add([&emitter] { emitter.reset(); });
            emitter = std::move(to);
        }) |
        map([](int value) { return value; }) | map([](int value) { return value; }) |
        tap([](int) {});
    const auto before = allocationsSoFar();
    const auto subscription = source.subscribe([](int) {}, [](std::exception_ptr) {}, [] {});
    const auto after = allocationsSoFar();
    EXPECT_EQ(after.blocks - before.blocks, 2U);
    EXPECT_LE(after.bytes - before.bytes, 320U);
    subscription.unsubscribe();
    EXPECT_FALSE(emitter.has_value());
}

TEST(RxCost, AFirstTeardownOfFourPointersNeedsNoAllocation) {
    const rxcpp::composite_subscription subscription;
    int values[4] = {};
    const std::size_t before = allocationsSoFar().blocks;
    subscription.add([first = &values[0], second = &values[1], third = &values[2],
                      fourth = &values[3]] { *first = *second = *third = *fourth = 1; });
    subscription.unsubscribe();
    EXPECT_EQ(allocationsSoFar().blocks - before, 0U);
    EXPECT_EQ(values[0] + values[1] + values[2] + values[3], 4);
}

}  // namespace
