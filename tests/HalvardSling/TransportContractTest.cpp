// What Transport.hpp promises of every transport, checked with each of them. A new transport gets
// a class that derives from `Subject`, and an instantiation like the one at the end.

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/testing/FakeTransport.hpp>

#include "Transfers.hpp"
#include "TransportContract.hpp"

using namespace HalvardSling;
using namespace TestSupport;

namespace {

class FakeSubject final : public Subject {
  public:
    FakeSubject() : Subject(std::make_shared<FakeTransport>()) {}

    TransferID sendAnswered(TransportCompletion completion) override {
        return send(
            {Response(
                {.status = 200, .headers = {}, .body = "x", .effectiveURL = {}, .timings = {}})},
            std::move(completion));
    }
    TransferID sendFailing(TransportCompletion completion) override {
        return send({SlingError(SlingErrorKind::connectionLost, "as told")}, std::move(completion));
    }
    TransferID sendOpen(TransportCompletion completion) override {
        return send({}, std::move(completion));
    }

  private:
    TransferID send(std::vector<TransportResult> answers, TransportCompletion completion) {
        // Recursive: the completion may be called in here.
        const std::scoped_lock lock(mutex_);
        auto& fake = dynamic_cast<FakeTransport&>(transport());
        for (auto& each : answers)
            fake.willAnswer(std::move(each));
        return fake.send(checked(requestTo("http://127.0.0.1/")), std::move(completion));
    }

    std::recursive_mutex mutex_;
};

TEST_P(TransportContract, AReplyComesThroughTheCompletion) {
    const auto result = outcomeOf(&Subject::sendAnswered);
    ASSERT_TRUE(std::holds_alternative<Response>(result));
    EXPECT_EQ(std::get<Response>(result).body(), "x");
}

TEST_P(TransportContract, WhatGoesWrongComesThroughTheCompletion) {
    const auto result = outcomeOf(&Subject::sendFailing);
    ASSERT_TRUE(std::holds_alternative<SlingError>(result));
    EXPECT_EQ(std::get<SlingError>(result).kind(), SlingErrorKind::connectionLost);
}

TEST_P(TransportContract, EveryCompletionIsCalledOnceFromWhateverThreadsTheyAreSent) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int each = 0; each < 50; ++each)
                subject->sendAnswered(counting());
        });
    for (auto& thread : threads)
        thread.join();
    outcomeOf(&Subject::sendAnswered);
    subject->destroy();
    EXPECT_EQ(replies + cancellations, 200);
    EXPECT_EQ(others, 0);
}

TEST_P(TransportContract, NoNameIsUsedTwice) {
    std::set<TransferID> names;
    for (int i = 0; i < 20; ++i) {
        names.insert(subject->sendAnswered(counting()));
        names.insert(subject->sendFailing(counting()));
        names.insert(subject->sendOpen(counting()));
    }
    EXPECT_EQ(names.size(), 60U);
}

TEST_P(TransportContract, ACancelledTransferIsNotHeardOfAgain) {
    for (int i = 0; i < 10; ++i) {
        const TransferID open = subject->sendOpen(counting());
        subject->cancel(open);
        subject->cancel(open);
    }
    outcomeOf(&Subject::sendAnswered);
    subject->destroy();
    EXPECT_EQ(replies + cancellations + others, 0);
}

TEST_P(TransportContract, CancellingFromManyThreadsLetsNoCompletionBeCalledTwice) {
    std::atomic<int> twice{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int each = 0; each < 50; ++each) {
                const auto calls = std::make_shared<std::atomic<int>>(0);
                const TransferID transfer = subject->sendAnswered(
                    [calls, &twice](const TransportResult&) { twice += (*calls)++; });
                subject->cancel(transfer);
            }
        });
    for (auto& thread : threads)
        thread.join();
    subject->destroy();
    EXPECT_EQ(twice, 0);
}

TEST_P(TransportContract, CancellingWhatHasEndedOrNeverWasDoesNothing) {
    const TransferID ended = subject->sendAnswered(counting());
    outcomeOf(&Subject::sendAnswered);
    subject->cancel(ended);
    subject->cancel(ended + 1000);
    EXPECT_TRUE(std::holds_alternative<Response>(outcomeOf(&Subject::sendAnswered)));
}

TEST_P(TransportContract, ACancelledTransferLetsGoOfItsCompletion) {
    const auto held = std::make_shared<int>(1);
    const TransferID open = subject->sendOpen([held](const TransportResult&) {});
    EXPECT_EQ(held.use_count(), 2);
    subject->cancel(open);
    EXPECT_EQ(held.use_count(), 1);
}

TEST_P(TransportContract, ACompletionMaySendAndCancel) {
    std::promise<void> done;
    int rounds = 0;
    std::function<void(const TransportResult&)> again = [&](const TransportResult&) {
        if (++rounds == 20) return done.set_value();
        subject->cancel(subject->sendOpen(counting()));
        subject->sendAnswered(again);
    };
    subject->sendAnswered(again);
    done.get_future().wait();
    subject->destroy();
    EXPECT_EQ(rounds, 20);
    EXPECT_EQ(replies + cancellations + others, 0);
}

TEST_P(TransportContract, NoLockIsHeldWhileACompletionRuns) {
    std::promise<void> done;
    subject->sendFailing([&](const TransportResult&) {
        // A cancel and its end on another thread, while this completion runs.
        std::thread([&, open = subject->sendOpen(counting())] { subject->cancel(open); }).join();
        done.set_value();
    });
    done.get_future().wait();
}

TEST_P(TransportContract, AThreadOfTheTransportSaysSo) {
    std::promise<bool> says;
    subject->sendAnswered([&, caller = std::this_thread::get_id()](const TransportResult&) {
        says.set_value(isTransportThread() || std::this_thread::get_id() == caller);
    });
    EXPECT_TRUE(says.get_future().get());
}

TEST_P(TransportContract, ItsEndEndsEveryOpenTransferOnce) {
    for (int i = 0; i < 20; ++i)
        subject->sendOpen(counting());
    subject->destroy();
    EXPECT_EQ(cancellations, 20);
    EXPECT_EQ(replies + others, 0);
}

TEST_P(TransportContract, WhatIsSentDuringItsEndIsCancelledToo) {
    for (int i = 0; i < 20; ++i)
        subject->sendOpen([this](const TransportResult&) {
            subject->sendOpen(counting());
            subject->sendAnswered(counting());
        });
    subject->destroy();
    EXPECT_EQ(cancellations, 40);
    EXPECT_EQ(replies + others, 0);
}

TEST_P(TransportContract, WhatIsCancelledDuringItsEndIsNotHeardOf) {
    std::vector<TransferID> open;
    std::atomic<int> ended{0};
    for (int i = 0; i < 20; ++i)
        open.push_back(subject->sendOpen([&](const TransportResult&) {
            ++ended;
            for (const TransferID each : open)
                subject->cancel(each);
        }));
    subject->destroy();
    EXPECT_EQ(ended, 1);
}

TEST_P(TransportContract, ItMayEndInsideACompletion) {
    std::promise<void> allEnded;
    std::atomic<int> ended{0};
    for (int i = 0; i < 3; ++i)
        subject->sendOpen([&](const TransportResult& result) {
            counting()(result);
            if (++ended == 3) allEnded.set_value();
        });
    subject->sendAnswered([&](const TransportResult&) { subject->destroy(); });
    allEnded.get_future().wait();
    EXPECT_EQ(cancellations, 3);
    EXPECT_EQ(replies + others, 0);
}

INSTANTIATE_TEST_SUITE_P(Fake, TransportContract,
                         testing::Values(Kind{"Fake",
                                              [] { return std::make_unique<FakeSubject>(); }}),
                         [](const auto& each) { return each.param.name; });

}  // namespace
