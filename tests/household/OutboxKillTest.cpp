// An outbox whose process is killed again and again.

#include <array>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <support/Program.hpp>
#include <support/Rounds.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>

#include "OutboxSupport.hpp"

using namespace HouseholdTest;
using KestrinHousehold::SQLiteOutboxStore;

namespace {

constexpr int itemCount = 4;

/// The write of a number: positions are the number itself; a show is added and removed by turns.
OutboxWrite writeOf(std::int64_t number) {
    const std::string item(1, static_cast<char>('a' + number % itemCount));
    const std::string profile = number % 3 == 0 ? "q" : "p";
    if (number % 2 == 0) return progress(item, number, {}, profile);
    return write(number / itemCount % 2 == 0 ? Op::addFavoriteShow : Op::removeFavoriteShow, item,
                 profile);
}

/// What the parent is told, a line each, whole or not at all.
void tell(int pipe, const std::string& line) {
    if (::write(pipe, (line + "\n").data(), line.size() + 1) < 0) ::_exit(3);
}

/// The service is the parent: it knows a write as soon as it is told.
class PipeDelivery final : public KestrinHousehold::OutboxDelivery {
  public:
    explicit PipeDelivery(int pipe) : pipe_(pipe) {}

    [[nodiscard]] Observable<Response> send(const OutboxWrite& write) override {
        return rxcpp::observable<>::create<Response>(
            [pipe = pipe_, write](const rxcpp::subscriber<Response>& subscriber) {
                tell(pipe, "sent " + std::to_string(static_cast<int>(write.operation)) + " " +
                               write.profileID + write.itemID + " " +
                               std::to_string(write.progress.value_or(0)));
                FakeDelivery::accept(write, subscriber);
            });
    }
    [[nodiscard]] Observable<Response> lookUp(const OutboxWrite&) override {
        return rxcpp::observable<>::just(reply(200, listOf({})));
    }

  private:
    int pipe_;
};

[[noreturn]] void keepWriting(const std::filesystem::path& file, int pipe, std::int64_t first) {
    const Outbox outbox(std::make_shared<SQLiteOutboxStore>(file),
                        std::make_shared<PipeDelivery>(pipe));
    for (std::int64_t number = first;; number += 3) {
        std::vector<Observed<OutboxEntry>> added;
        for (std::int64_t next = number; next < number + 3; ++next) {
            tell(pipe, "issued " + std::to_string(next));
            added.emplace_back(outbox.add(writeOf(next)));
        }
        for (std::size_t at = 0; at < added.size(); ++at)
            if (added[at].completed())
                tell(pipe, "accepted " + std::to_string(number + static_cast<std::int64_t>(at)));
    }
}

[[noreturn]] void sendTheRest(const std::filesystem::path& file, int pipe) {
    {
        const Outbox outbox(std::make_shared<SQLiteOutboxStore>(file),
                            std::make_shared<PipeDelivery>(pipe));
        const auto left = Observed(outbox.settled()).values();
        if (left.size() != 1 || left.front().waiting != 0) ::_exit(1);
    }
    ::_exit(0);
}

/// What the parent knows of an item of one list.
struct Item {
    std::vector<OutboxWrite> possible{};  ///< issued from the last accepted one on
    OutboxWrite last{};                   ///< what the service was sent last
    bool isAccepted = false;
};

class Killing {
  public:
    explicit Killing(std::filesystem::path file) : file_(std::move(file)) {}

    /// Runs a process until it has said so many lines, and kills it.
    void killAfter(std::size_t lines) {
        start([this](int pipe) { keepWriting(file_, pipe, last_ + 1); });
        while (lines-- > 0 && readLine()) {
        }
        ::kill(child_, SIGKILL);
        while (readLine()) {
        }
        EXPECT_EQ(end(), SIGKILL);
    }

    void sendTheRest() {
        start([this](int pipe) { ::sendTheRest(file_, pipe); });
        while (readLine()) {
        }
        EXPECT_EQ(end(), 0);
    }

    /// The service has of each item what the last accepted write made of it, or one that was issued
    /// after that.
    void check() const {
        EXPECT_GT(accepted_, 0U);
        for (const auto& [name, item] : items_) {
            if (!item.isAccepted) continue;
            EXPECT_THAT(item.possible, testing::Contains(item.last)) << name;
        }
    }

    [[nodiscard]] std::size_t accepted() const { return accepted_; }
    [[nodiscard]] std::size_t sent() const { return sent_; }

  private:
    template <class Body>
    void start(const Body& body) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::pipe(ends.data()), 0);
        child_ = ::fork();
        if (child_ == 0) {
            ::close(ends[0]);
            body(ends[1]);
        }
        ::close(ends[1]);
        stream_ = ::fdopen(ends[0], "r");
    }

    bool readLine() {
        std::array<char, 256> line{};
        if (std::fgets(line.data(), line.size(), stream_) == nullptr) return false;
        std::istringstream words(line.data());
        std::string what;
        words >> what;
        what == "sent" ? noteSent(words) : noteNumber(what, words);
        return true;
    }

    static std::string nameOf(const OutboxWrite& write) {
        const bool isHistory = write.operation == Op::addVideoToHistory;
        return (isHistory ? "history " : "favourites ") + write.profileID + write.itemID;
    }

    void noteNumber(const std::string& what, std::istringstream& words) {
        std::int64_t number = 0;
        words >> number;
        const auto write = writeOf(number);
        auto& possible = items_[nameOf(write)].possible;
        if (what == "issued") {
            last_ = number;
            possible.push_back(write);
            numbers_[nameOf(write)].push_back(number);
        } else {
            ++accepted_;
            items_[nameOf(write)].isAccepted = true;
            auto& numbers = numbers_[nameOf(write)];
            while (!numbers.empty() && numbers.front() < number) {
                numbers.erase(numbers.begin());
                possible.erase(possible.begin());
            }
        }
    }

    void noteSent(std::istringstream& words) {
        ++sent_;
        int operation = 0;
        std::string place;
        std::int64_t position = 0;
        words >> operation >> place >> position;
        auto made = write(static_cast<Op>(operation), place.substr(1), place.substr(0, 1));
        if (made.operation == Op::addVideoToHistory) made.progress = position;
        items_[nameOf(made)].last = made;
    }

    int end() {
        std::fclose(stream_);
        int status = 0;
        ::waitpid(child_, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
    }

    std::filesystem::path file_;
    pid_t child_ = -1;
    std::FILE* stream_ = nullptr;
    std::int64_t last_ = 0;
    std::size_t accepted_ = 0;
    std::size_t sent_ = 0;
    std::map<std::string, Item> items_;
    std::map<std::string, std::vector<std::int64_t>> numbers_;
};

}  // namespace

TEST(OutboxKill, LosesNothingThatWasAcceptedAndChangesNothingTwice) {
    const TestSupport::TemporaryDirectory folder;
    Killing killing(folder / "outbox.db");
    std::mt19937 random(7);
    const auto rounds = TestSupport::roundsOf(25);
    for (std::size_t round = 1; round <= rounds; ++round) {
        killing.killAfter(random() % 40);
        if (round % 5 != 0) continue;
        killing.sendTheRest();
        killing.check();
        if (testing::Test::HasFailure()) return;
    }
    std::cout << rounds << " kills, " << killing.accepted() << " accepted, " << killing.sent()
              << " sent\n";
}
