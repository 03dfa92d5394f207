#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <support/Observed.hpp>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinHousehold/outbox/MemoryOutboxStore.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/testing/FakeScheduler.hpp>
#include <KestrinProfile/model/DateFormatter.hpp>

namespace HouseholdTest {

using HalvardSling::Observable;
using HalvardSling::Response;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinHousehold::FakeScheduler;
using KestrinHousehold::Outbox;
using KestrinHousehold::OutboxEntry;
using KestrinHousehold::OutboxError;
using KestrinHousehold::OutboxEvent;
using KestrinHousehold::OutboxWrite;
using KestrinHousehold::Scheduler;
using KestrinProfile::ProfileOperation;
using KestrinProfile::Types;
using KestrinProfile::UserProfileElement;
using Kind = OutboxEvent::Kind;
using Op = ProfileOperation;
using TestSupport::Observed;
using namespace std::chrono_literals;

inline OutboxWrite write(Op operation, std::string item = {}, std::string profile = "p") {
    return {std::move(profile), "b", operation, std::move(item)};
}

inline OutboxWrite progress(std::string video, std::optional<std::int64_t> position,
                            std::optional<bool> isComplete = {}, std::string profile = "p") {
    auto made = write(Op::addVideoToHistory, std::move(video), std::move(profile));
    made.progress = position;
    made.isComplete = isComplete;
    return made;
}

inline OutboxWrite shows(std::vector<UserProfileElement> elements) {
    auto made = write(Op::addFavoriteShows);
    made.shows = std::move(elements);
    return made;
}

/// The body of a list of such elements.
inline std::string bodyOf(const std::vector<std::string>& elements) {
    std::string text = R"({"id": "history", "maxSize": 500, "elements": [)";
    for (const auto& element : elements)
        text += (text.back() == '}' ? "," : "") + element;
    return text + "]}";
}

/// An element of a list that was added at a time.
/// @param more  further members, each after a comma
inline std::string elementOf(const std::string& id, Scheduler::WallTime added,
                             const std::string& more = {}) {
    const auto date = std::chrono::floor<std::chrono::microseconds>(added);
    return R"({"id": ")" + id + R"(", "autoAddTimestamp": ")" +
           KestrinProfile::DateFormatter::iso8601().text(date) + "\"" + more + "}";
}

/// The body of a list of elements that were added at times.
inline std::string listOf(const std::vector<std::pair<std::string, Scheduler::WallTime>>& elements,
                          const std::string& more = {}) {
    std::vector<std::string> texts;
    for (const auto& [id, added] : elements)
        texts.push_back(elementOf(id, added, more));
    return bodyOf(texts);
}

/// A service that has lists and answers as the protocol says.
class ModelService {
  public:
    struct Element {
        std::string id;
        std::optional<std::string> type{};
        std::optional<std::int64_t> progress{};
        std::optional<bool> isComplete{};
        Scheduler::WallTime added{};

        /// When it was added plays no part.
        friend bool operator==(const Element& left, const Element& right) {
            return std::tie(left.id, left.type, left.progress, left.isComplete) ==
                   std::tie(right.id, right.type, right.progress, right.isComplete);
        }
    };
    using Lists = std::map<std::tuple<std::string, std::string, std::string>, std::vector<Element>>;

    /// @param now  by the service's clock
    void apply(const OutboxWrite& write, Scheduler::WallTime now = {}) {
        now_ = now;
        switch (write.operation) {
            case Op::addVideoToHistory:
                return add(write, "history",
                           {write.itemID, "VIDEO", write.progress, write.isComplete});
            case Op::removeVideoFromHistory:
                return remove(write, "history");
            case Op::clearHistory:
                return clear(write, "history");
            case Op::addFavoriteShow:
                return add(write, "favorites", {write.itemID, "SHOW"});
            case Op::addFavoriteShows:
                for (const auto& show : write.shows)
                    add(write, "favorites", {*show.id, show.type});
                return;
            case Op::removeFavoriteShow:
                return remove(write, "favorites");
            case Op::clearFavorites:
                return clear(write, "favorites");
            case Op::addVideoToWatchList:
                return add(write, "watchlist", {write.itemID, "VIDEO"});
            case Op::removeFromWatchList:
                return remove(write, "watchlist");
            case Op::clearWatchList:
                return clear(write, "watchlist");
            case Op::addSearchHistory:
                return add(write, "searches", {write.itemID});
            case Op::deleteSearchHistory:
                return clear(write, "searches");
            default:
                FAIL() << "no write";
        }
    }

    /// The lists that are not empty, newest first.
    [[nodiscard]] Lists lists() const {
        Lists found;
        for (const auto& [key, list] : lists_)
            if (!list.empty()) found.emplace(key, list);
        return found;
    }

    /// The list of a write as the service sends it.
    [[nodiscard]] std::string textOf(const OutboxWrite& write) {
        std::vector<std::string> texts;
        for (const auto& each : list(write, nameOf(write.operation))) {
            std::string more;
            if (each.progress) more += R"(, "progress": )" + std::to_string(*each.progress);
            if (each.isComplete)
                more += std::string(R"(, "isCompleted": )") + (*each.isComplete ? "true" : "false");
            texts.push_back(elementOf(each.id, each.added, more));
        }
        return bodyOf(texts);
    }

  private:
    static std::string nameOf(Op operation) {
        switch (operation) {
            case Op::addVideoToHistory:
            case Op::removeVideoFromHistory:
            case Op::clearHistory:
                return "history";
            case Op::addVideoToWatchList:
            case Op::removeFromWatchList:
            case Op::clearWatchList:
                return "watchlist";
            default:
                return "favorites";
        }
    }
    std::vector<Element>& list(const OutboxWrite& write, const std::string& name) {
        return lists_[{write.profileID, write.brandID, name}];
    }
    void add(const OutboxWrite& write, const std::string& name, Element element) {
        auto& elements = list(write, name);
        const auto old = std::ranges::find(elements, element.id, &Element::id);
        if (old != elements.end()) {
            if (!element.type) element.type = old->type;
            if (!element.progress) element.progress = old->progress;
            if (!element.isComplete) element.isComplete = old->isComplete;
            elements.erase(old);
        }
        element.added = now_;
        elements.insert(elements.begin(), std::move(element));
    }
    void remove(const OutboxWrite& write, const std::string& name) {
        std::erase_if(list(write, name), [&](const auto& one) { return one.id == write.itemID; });
    }
    void clear(const OutboxWrite& write, const std::string& name) { list(write, name).clear(); }

    Lists lists_;
    Scheduler::WallTime now_{};
};

inline Response reply(int status, std::string body = {}, HalvardSling::Headers headers = {}) {
    return Response({status, std::move(headers), std::move(body), "", {}});
}

inline std::exception_ptr status(int code, HalvardSling::Headers headers = {}) {
    HalvardSling::ProblemDocument problem;
    problem.title = "Title";
    problem.detail = "the detail";
    return std::make_exception_ptr(
        SlingError::httpStatus(code, "https://x", {std::move(headers), ""}, problem));
}

inline std::exception_ptr networkIsAway() {
    return std::make_exception_ptr(SlingError(SlingErrorKind::cannotConnect, "no network"));
}

/// A delivery that records what it is asked for, and answers at once unless it is told to wait.
class FakeDelivery final : public KestrinHousehold::OutboxDelivery {
  public:
    using Answer = std::function<void(const OutboxWrite&, const rxcpp::subscriber<Response>&)>;

    static void accept(const OutboxWrite&, const rxcpp::subscriber<Response>& subscriber) {
        subscriber.on_next(reply(204));
        subscriber.on_completed();
    }
    static Answer failing(const std::exception_ptr& error) {
        return [error](const OutboxWrite&, const rxcpp::subscriber<Response>& subscriber) {
            subscriber.on_error(error);
        };
    }
    static Answer answering(const Response& response) {
        return [response](const OutboxWrite&, const rxcpp::subscriber<Response>& subscriber) {
            subscriber.on_next(response);
            subscriber.on_completed();
        };
    }

    [[nodiscard]] Observable<Response> send(const OutboxWrite& write) override {
        return recorded(write, sent_, onSend_);
    }
    [[nodiscard]] Observable<Response> lookUp(const OutboxWrite& write) override {
        return recorded(write, lookedUp_, onLookUp_);
    }

    void onSend(Answer answer) {
        const std::scoped_lock lock(mutex_);
        onSend_ = std::move(answer);
    }
    void onLookUp(Answer answer) {
        const std::scoped_lock lock(mutex_);
        onLookUp_ = std::move(answer);
    }
    /// From now on nothing is answered before `answerNext`.
    void hold() {
        onSend([this](const OutboxWrite& write, const rxcpp::subscriber<Response>& subscriber) {
            const std::scoped_lock lock(mutex_);
            held_.emplace_back(write, subscriber);
        });
    }
    [[nodiscard]] std::size_t held() const {
        const std::scoped_lock lock(mutex_);
        return held_.size();
    }
    void answerNext(const Answer& answer = &accept) {
        std::unique_lock lock(mutex_);
        ASSERT_FALSE(held_.empty());
        const auto [write, subscriber] = held_.front();
        held_.pop_front();
        lock.unlock();
        answer(write, subscriber);
    }

    [[nodiscard]] std::vector<OutboxWrite> sent() const {
        const std::scoped_lock lock(mutex_);
        return sent_;
    }
    [[nodiscard]] std::vector<OutboxWrite> lookedUp() const {
        const std::scoped_lock lock(mutex_);
        return lookedUp_;
    }

  private:
    Observable<Response> recorded(const OutboxWrite& write, std::vector<OutboxWrite>& list,
                                  const Answer& answer) {
        return rxcpp::observable<>::create<Response>(
            [this, write, &list, &answer](const rxcpp::subscriber<Response>& subscriber) {
                Answer now;
                {
                    const std::scoped_lock lock(mutex_);
                    list.push_back(write);
                    now = answer;
                }
                now(write, subscriber);
            });
    }

    mutable std::mutex mutex_;
    Answer onSend_ = &accept;
    Answer onLookUp_ = answering(reply(200, listOf({})));
    std::vector<OutboxWrite> sent_;
    std::vector<OutboxWrite> lookedUp_;
    std::deque<std::pair<OutboxWrite, rxcpp::subscriber<Response>>> held_;
};

/// A store that counts its commits, which can be made to fail, and warns when it is opened.
class FailingStore final : public KestrinHousehold::OutboxStore {
  public:
    [[nodiscard]] Loaded load() override {
        if (onLoad) onLoad();
        if (cannotLoad) throw OutboxError(OutboxError::Case::storeUnavailable, "held");
        auto found = kept.load();
        found.warnings = warnings;
        return found;
    }
    void commit(const Change& change) override {
        ++commits;
        if (onCommit) onCommit();
        if (cannotCommit) throw OutboxError(OutboxError::Case::notStored, "disk full");
        kept.commit(change);
    }

    KestrinHousehold::MemoryOutboxStore kept;
    std::atomic<bool> cannotLoad = false;
    std::atomic<bool> cannotCommit = false;
    std::atomic<int> commits = 0;
    std::function<void()> onLoad{};
    std::function<void()> onCommit{};
    std::vector<std::string> warnings{};
};

/// A time that stands still, and counts the tasks that it runs: each is a wake-up. It can run out
/// of threads.
class FailingScheduler final : public Scheduler {
  public:
    [[nodiscard]] SteadyTime steadyTime() const override { return kept.steadyTime(); }
    [[nodiscard]] WallTime wallTime() const override { return kept.wallTime(); }
    TaskID after(std::chrono::nanoseconds delay, Task task) override {
        if (hasNoThread) throw std::system_error(EAGAIN, std::generic_category());
        return kept.after(delay, [this, task = std::move(task)] {
            ++wakeUps;
            task();
        });
    }
    void cancel(TaskID task) noexcept override { kept.cancel(task); }

    FakeScheduler kept;
    std::atomic<bool> hasNoThread = false;
    std::atomic<std::size_t> wakeUps = 0;
};

/// The events of an outbox, from any thread.
class Events {
  public:
    explicit Events(const Outbox& outbox) {
        outbox.events().subscribe(
            [state = state_](const OutboxEvent& event) {
                const std::scoped_lock lock(state->mutex);
                state->events.push_back(event);
            },
            [](const std::exception_ptr&) {});
    }
    [[nodiscard]] std::vector<OutboxEvent> all() const {
        const std::scoped_lock lock(state_->mutex);
        return state_->events;
    }
    [[nodiscard]] std::vector<Kind> kinds() const {
        std::vector<Kind> kinds;
        for (const auto& event : all())
            kinds.push_back(event.kind);
        return kinds;
    }

  private:
    struct State {
        std::mutex mutex;
        std::vector<OutboxEvent> events;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace HouseholdTest
