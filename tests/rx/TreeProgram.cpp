// Builds random trees of operators, drives their sources at random, and writes down what happens:
// the same program with RxCpp and with the bundled subset must write the same. By itself it checks
// what every sequence promises: nothing follows the end, and each source is torn down once.

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <rxcpp/rx.hpp>

namespace {

namespace op = rxcpp::operators;
using numbers = rxcpp::observable<int>;

constexpr int deepest = 4;
constexpr int steps = 12;
constexpr std::size_t most_subscriptions = 500;

/// The same numbers with every standard library.
class dice {
  public:
    explicit dice(std::uint32_t seed) : generator_(seed) {}
    int below(int limit) {
        return static_cast<int>(generator_() % static_cast<std::uint32_t>(limit));
    }

  private:
    std::mt19937 generator_;
};

/// What has happened since the last line.
class trace {
  public:
    void event(const std::string& text) { events_ += " " + text; }

    /// Teardowns that one event causes come in no defined order.
    void teardown(const std::string& text) { teardowns_.insert(text); }

    void line(const std::string& name) {
        if (events_.empty() && teardowns_.empty()) return;
        std::printf("%s:%s", name.c_str(), events_.c_str());
        for (const auto& text : teardowns_)
            std::printf(" ~%s", text.c_str());
        std::printf("\n");
        events_.clear();
        teardowns_.clear();
    }

  private:
    std::string events_;
    std::multiset<std::string> teardowns_;
};

/// One subscription to a source of a tree.
struct emission {
    rxcpp::subscriber<int> to;
    int teardowns = 0;
};

/// A tree, and everything that drives it.
class tree {
  public:
    explicit tree(std::uint32_t seed) : dice_(seed), root_(grow(deepest)) {}

    /// @return what is wrong, or nothing.
    std::string run() {
        const int quits_after = dice_.below(4) == 0 ? 1 + dice_.below(3) : 0;
        int values = 0;
        root_.subscribe(
            lifetime_,
            [&, this](int value) {
                heard("next " + std::to_string(value));
                if (++values == quits_after) unsubscribe();
            },
            [this](std::exception_ptr error) {
                heard("error " + rxcpp::util::what(error));
                ended_ = true;
            },
            [this] {
                heard("completed");
                ended_ = true;
            });
        settle("subscribed");
        for (int step = 0; step < steps; ++step)
            drive(step);
        unsubscribe();
        settle("unsubscribed");
        for (const auto& each : emissions_)
            if (each->teardowns != 1) complain("a source was not torn down once");
        return complaint_;
    }

  private:
    void heard(const std::string& text) {
        if (ended_) complain("an event after the end");
        trace_.event(text);
    }

    void complain(const std::string& text) {
        if (complaint_.empty()) complaint_ = text;
    }

    void unsubscribe() {
        ended_ = true;
        lifetime_.unsubscribe();
    }

    void settle(const std::string& name) {
        while (!loop_.empty() && loop_.peek().when <= loop_.now())
            loop_.dispatch();
        trace_.line("  " + name);
    }

    void drive(int step) {
        if (emissions_.empty()) return;
        const auto which =
            static_cast<std::size_t>(dice_.below(static_cast<int>(emissions_.size())));
        const auto to = emissions_[which]->to;
        const int what = dice_.below(8);
        const int value = dice_.below(20);
        if (what == 0)
            to.on_completed();
        else if (what == 1)
            to.on_error(std::make_exception_ptr(std::runtime_error(std::to_string(value))));
        else
            to.on_next(value);
        settle(std::to_string(step) + " source " + std::to_string(which));
    }

    /// A source that emits some values at once, and then ends or waits to be driven.
    numbers leaf() {
        std::vector<int> values(static_cast<std::size_t>(dice_.below(4)));
        for (int& value : values)
            value = dice_.below(20);
        const int end = dice_.below(7);
        return rxcpp::observable<>::create<int>([this, values, end](rxcpp::subscriber<int> to) {
            if (emissions_.size() >= most_subscriptions) return to.on_completed();
            const auto name = std::to_string(emissions_.size());
            trace_.event("[" + name);
            const auto each = std::make_shared<emission>(emission{to});
            emissions_.push_back(each);
            to.add([this, name, weak = std::weak_ptr(each)] {
                trace_.teardown(name);
                if (const auto alive = weak.lock()) ++alive->teardowns;
            });
            for (const int value : values)
                to.on_next(value);
            if (end == 0) to.on_completed();
            if (end == 1) to.on_error(std::make_exception_ptr(std::runtime_error("leaf")));
        });
    }

    numbers grow(int depth) {
        if (depth == 0 || dice_.below(6) == 0) return leaf();
        const numbers source = grow(depth - 1);
        const int kind = dice_.below(18);
        const int number = dice_.below(3);
        switch (kind) {
            case 0:
                return source | op::map([](int value) { return 2 * value + 1; });
            case 1:
                return source | op::map(&tree::not_five);
            case 2:
                return source | op::filter([](int value) { return value % 3 != 0; });
            case 3:
                return source | op::filter([](int value) { return not_five(value) > 2; });
            case 4:
                return source | op::take(number);
            case 5:
                return source | op::retry(number + 1);
            case 6:
                return source | op::tap([this](int value) { tapped(value); });
            case 7:
                return source | op::finally([this] { trace_.teardown("finally"); });
            case 8:
                return source | op::observe_on(rxcpp::observe_on_run_loop(loop_));
            case 9:
                return source |
                       op::timeout(std::chrono::hours(1), rxcpp::observe_on_run_loop(loop_));
            default:
                return grow_two(kind, source, depth);
        }
    }

    numbers grow_two(int kind, const numbers& source, int depth) {
        const numbers other = grow(depth - 1);
        const numbers third = grow(depth - 2 > 0 ? depth - 2 : 0);
        const auto choose = [other, third](int value) { return value % 2 == 0 ? other : third; };
        switch (kind) {
            case 10:
                return source | op::concat(other);
            case 11:
                return source | op::merge(other, third);
            case 12:
                return source | op::zip([](int a, int b) { return 3 * a + b; }, other);
            case 13:
                return source | op::flat_map(choose);
            case 14:
                return source | op::concat_map(choose);
            case 15:
                return source | op::map(choose) | op::merge();
            case 16:
                return source | op::map(choose) | op::concat();
            default:
                return source |
                       op::on_error_resume_next([other](std::exception_ptr) { return other; });
        }
    }

    static int not_five(int value) {
        if (value % 5 == 4) throw std::runtime_error("five");
        return value;
    }

    void tapped(int value) {
        trace_.event("tap " + std::to_string(value));
        static_cast<void>(not_five(value));
    }

    dice dice_;
    trace trace_;
    rxcpp::schedulers::run_loop loop_;
    std::vector<std::shared_ptr<emission>> emissions_;
    rxcpp::composite_subscription lifetime_;
    numbers root_;
    bool ended_ = false;
    std::string complaint_;
};

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::fputs("usage: FIRST COUNT, the trees' numbers\n", stderr);
        return EXIT_FAILURE;
    }
    const long first = std::strtol(arguments[1], nullptr, 10);
    const long trees = std::strtol(arguments[2], nullptr, 10);
    for (long number = first; number < first + trees; ++number) {
        std::printf("tree %ld\n", number);
        const std::string complaint = tree(static_cast<std::uint32_t>(number)).run();
        if (complaint.empty()) continue;
        std::fflush(stdout);
        std::fprintf(stderr, "tree %ld: %s\n", number, complaint.c_str());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
