#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <KestrinHousehold/retry/internal/Budget.hpp>

using KestrinHousehold::RetryBudget;
using KestrinHousehold::internal::Budget;

namespace {

int takenFrom(Budget& budget, int most) {
    int taken = 0;
    while (taken < most && budget.take())
        ++taken;
    return taken;
}

TEST(Budget, givesOutWhatItHasAtTheStart) {
    Budget budget(RetryBudget{.share = 0, .atStart = 3.9, .atMost = 10});
    EXPECT_EQ(takenFrom(budget, 100), 3);
}

TEST(Budget, sharesOfSuccessesAddUpExactly) {
    Budget budget(RetryBudget{.share = 0.1, .atStart = 0, .atMost = 10});
    for (int i = 0; i < 9; ++i)
        budget.add();
    EXPECT_FALSE(budget.take());
    budget.add();
    EXPECT_TRUE(budget.take());
    EXPECT_FALSE(budget.take());
}

TEST(Budget, neverHoldsMoreThanItMay) {
    Budget budget(RetryBudget{.share = 0.7, .atStart = 0, .atMost = 2});
    for (int i = 0; i < 100; ++i)
        budget.add();
    EXPECT_EQ(takenFrom(budget, 100), 2);
}

TEST(Budget, aStartAboveTheMostIsSpentAndNotFilledUp) {
    Budget budget(RetryBudget{.share = 1, .atStart = 5, .atMost = 2});
    budget.add();
    EXPECT_EQ(takenFrom(budget, 100), 5);
    for (int i = 0; i < 10; ++i)
        budget.add();
    EXPECT_EQ(takenFrom(budget, 100), 2);
}

TEST(Budget, numbersThatAreNoneAllowNothing) {
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    for (const double odd : {none, -1.0, -std::numeric_limits<double>::infinity()}) {
        Budget budget(RetryBudget{.share = odd, .atStart = odd, .atMost = odd});
        budget.add();
        EXPECT_FALSE(budget.take()) << odd;
    }
    Budget endless(RetryBudget{.share = std::numeric_limits<double>::infinity(),
                               .atStart = 0,
                               .atMost = std::numeric_limits<double>::infinity()});
    endless.add();
    EXPECT_EQ(takenFrom(endless, 1000), 1000);
}

TEST(Budget, threadsTakeNoRepeatTwice) {
    constexpr int all = 10'000;
    Budget budget(RetryBudget{.share = 0, .atStart = all, .atMost = all});
    std::vector<int> taken(4);
    std::vector<std::thread> threads;
    for (auto& mine : taken)
        threads.emplace_back([&budget, &mine] { mine = takenFrom(budget, all); });
    int sum = 0;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
        sum += taken[i];
    }
    EXPECT_EQ(sum, all);
    EXPECT_FALSE(budget.take());
}

}  // namespace
