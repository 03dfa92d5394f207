#include <array>
#include <chrono>
#include <condition_variable>
#include <thread>
#include <type_traits>
#include <utility>

#include <gmock/gmock.h>

#include <internal/Guarded.hpp>

using KestrinInternal::Guarded;

namespace {

using Lock = Guarded<int>::Lock;

template <class T>
concept ShowsItsState = requires(T guarded) { *guarded; } || std::is_convertible_v<T, int>;

TEST(Guarded, ShowsItsStateOnlyThroughALock) {
    EXPECT_FALSE(ShowsItsState<Guarded<int>>);
    EXPECT_TRUE(ShowsItsState<Lock>);
    EXPECT_FALSE(std::is_copy_constructible_v<Lock>);
}

TEST(Guarded, BeginsWithTheValuesOfItsType) {
    Guarded<int> number;
    EXPECT_EQ(*number.lock(), 0);
}

TEST(Guarded, LosesNoChangeOfSeveralThreads) {
    constexpr int changes = 20'000;
    Guarded<int> sum;
    std::array<std::thread, 4> threads;
    for (auto& each : threads)
        each = std::thread([&] {
            for (int count = 0; count < changes; ++count)
                ++*sum.lock();
        });
    for (auto& each : threads)
        each.join();
    EXPECT_EQ(*sum.lock(), changes * static_cast<int>(threads.size()));
}

TEST(Guarded, IsFreeOnceItsLockIsGivenBack) {
    Guarded<int> number;
    auto early = number.lock();
    early.unlock();
    auto later = number.lock();
    auto moved = std::move(later);
    *moved = 1;
    moved.unlock();
    EXPECT_EQ(*number.lock(), 1);
}

TEST(Guarded, LetsOthersChangeWhatIsWaitedFor) {
    Guarded<bool> done;
    std::condition_variable changed;
    auto lock = done.lock();
    std::thread other([&] {
        *done.lock() = true;
        changed.notify_one();
    });
    lock.wait(changed, [&] { return *lock; });
    EXPECT_TRUE(*lock);
    lock.unlock();
    other.join();
}

TEST(Guarded, WaitsNoLongerThanItIsTold) {
    Guarded<bool> done;
    std::condition_variable changed;
    auto lock = done.lock();
    EXPECT_FALSE(lock.waitFor(changed, std::chrono::milliseconds(1), [&] { return *lock; }));
}

}  // namespace
