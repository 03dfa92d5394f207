#pragma once

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rxcpp/rx-lite.hpp>

namespace rx_test {

using observable_of_int = rxcpp::observable<int>;
using subscriber_of_int = rxcpp::subscriber<int>;
using events = std::vector<std::string>;

inline std::exception_ptr make_error(const std::string& text) {
    return std::make_exception_ptr(std::runtime_error(text));
}

inline std::string text_of(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        return exception.what();
    }
}

/// Writes down events in the order in which they come. Outlives what it is given to.
class event_log {
  public:
    auto on_next() {
        return [this](int value) { note("next " + std::to_string(value)); };
    }
    auto on_error() {
        return [this](std::exception_ptr error) { note("error " + text_of(error)); };
    }
    auto on_completed() {
        return [this] { note("completed"); };
    }
    auto on_teardown() {
        return [this] { note("teardown"); };
    }

    void note(std::string event) { seen_.push_back(std::move(event)); }
    const events& seen() const { return seen_; }

  private:
    events seen_;
};

/// Subscribes the log with all its functions.
template <class Observable>
rxcpp::composite_subscription subscribe(const Observable& source, event_log& log) {
    return source.subscribe(log.on_next(), log.on_error(), log.on_completed());
}

/// Runs `action` so that a call of std::terminate ends the process in a way that a test can tell
/// from every other end.
template <class F>
void run_until_terminated(F action) {
    std::set_terminate([] {
        std::fputs("std::terminate was called\n", stderr);
        std::fflush(stderr);
        std::_Exit(42);
    });
    action();
}

/// Expects that a lambda calls std::terminate.
template <class F>
void expect_terminates(F action) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(run_until_terminated(action), ::testing::ExitedWithCode(42),
                "std::terminate was called");
}

}  // namespace rx_test
