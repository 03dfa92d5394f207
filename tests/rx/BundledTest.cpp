// What the bundled subset promises beyond the contract: handles may be dropped in the middle of an
// event, values need not be copyable, and misuse ends the program.

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include <rxcpp/rx.hpp>

#include "RxTestSupport.hpp"

static_assert(KESTRIN_RXCPP_BUNDLED == 1, "the build must say which Rx it uses");

namespace {

using rx_test::subscriber_of_int;

TEST(RxBundled, AnEmitterMayBeDroppedByTheEventThatItSends) {
    const auto witness = std::make_shared<int>(0);
    std::optional<subscriber_of_int> emitter;
    const auto source = rxcpp::observable<>::create<int>(
        [&emitter](subscriber_of_int to) { emitter = std::move(to); });

    source.subscribe([&emitter, witness](int) {
        emitter.reset();
        ++*witness;
    });
    emitter->on_next(1);
    EXPECT_EQ(*witness, 1);
    EXPECT_EQ(witness.use_count(), 1);

    source.subscribe([](int) {},
                     [&emitter, witness] {
                         emitter.reset();
                         ++*witness;
                     });
    emitter->on_completed();
    EXPECT_EQ(*witness, 2);
    EXPECT_EQ(witness.use_count(), 1);

    source.subscribe([](int) {},
                     [&emitter, witness](std::exception_ptr) {
                         emitter.reset();
                         ++*witness;
                     });
    emitter->on_error(rx_test::make_error("e"));
    EXPECT_EQ(*witness, 3);
    EXPECT_EQ(witness.use_count(), 1);
}

TEST(RxBundled, AnObservableMayBeReplacedByTheEventThatItEmits) {
    const auto witness = std::make_shared<int>(0);
    rxcpp::observable<int> source =
        rxcpp::observable<>::create<int>([witness](subscriber_of_int to) {
            to.on_next(1);
            ++*witness;
        });
    source.subscribe([&source](int) { source = rxcpp::observable<>::never<int>(); });
    EXPECT_EQ(*witness, 1);
    EXPECT_EQ(witness.use_count(), 1);
}

TEST(RxBundled, AHandleMayEndAndDropItself) {
    std::optional<rxcpp::composite_subscription> handle(std::in_place);
    int ran = 0;
    handle->add([&] {
        handle.reset();
        ++ran;
    });
    handle->unsubscribe();
    EXPECT_EQ(ran, 1);
}

TEST(RxBundled, AValueThatCannotBeCopiedPassesByReference) {
    int received = 0;
    rxcpp::observable<>::create<std::unique_ptr<int>>(
        [](rxcpp::subscriber<std::unique_ptr<int>> to) { to.on_next(std::make_unique<int>(5)); })
        .subscribe([&received](const std::unique_ptr<int>& value) { received = *value; });
    EXPECT_EQ(received, 5);
}

TEST(RxBundledDeathTest, SubscribingToAnObservableWithoutASourceTerminates) {
    rx_test::expect_terminates([] { rxcpp::observable<int>().subscribe([](int) {}); });
}

TEST(RxBundledDeathTest, AHandleThatWasMovedFromTerminates) {
    rx_test::expect_terminates([] {
        const rxcpp::composite_subscription first;
        rxcpp::composite_subscription second;
        const rxcpp::composite_subscription third = std::move(second);
        // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
        second.unsubscribe();
    });
}

}  // namespace
