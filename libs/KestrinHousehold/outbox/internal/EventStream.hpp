#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include <HalvardSling/rx/Observable.hpp>

namespace KestrinHousehold::internal {

/// Events for whoever listens: each listener gets those from its subscription on, in one order, one
/// at a time.
template <class T>
class EventStream : public std::enable_shared_from_this<EventStream<T>> {
  public:
    [[nodiscard]] HalvardSling::Observable<T> observable() {
        return rxcpp::observable<>::create<T>(
            [self = this->shared_from_this()](const rxcpp::subscriber<T>& subscriber) {
                self->add(subscriber);
            });
    }

    /// Puts events behind those that wait to be sent; a lock may be held, so that they come in the
    /// order of what they tell. An event for which there is no memory is lost.
    void queue(std::vector<T> events) noexcept {
        const std::scoped_lock lock(mutex_);
        try {
            for (auto& event : events)
                waiting_.push_back(std::move(event));
        } catch (const std::bad_alloc&) {  // The rest is lost.
        }
    }

    /// Sends what waits, or leaves it to a thread that is sending; not with a lock held.
    void send() {
        {
            const std::scoped_lock lock(mutex_);
            if (isSending_) return;
            isSending_ = true;
        }
        while (auto next = take())
            for (const auto& subscriber : next->second)
                tell(subscriber, next->first);
    }

    void complete() {
        std::map<std::uint64_t, rxcpp::subscriber<T>> subscribers;
        {
            const std::scoped_lock lock(mutex_);
            isComplete_ = true;
            subscribers.swap(subscribers_);
        }
        for (const auto& [number, subscriber] : subscribers)
            subscriber.on_completed();
    }

  private:
    using Delivery = std::pair<T, std::vector<rxcpp::subscriber<T>>>;

    static void tell(const rxcpp::subscriber<T>& subscriber, const T& event) {
        try {
            subscriber.on_next(event);
        } catch (const std::bad_alloc&) {  // That one does not hear of it; the others do.
        }
    }

    void add(const rxcpp::subscriber<T>& subscriber) {
        std::uint64_t number = 0;
        {
            std::unique_lock lock(mutex_);
            if (isComplete_) {
                lock.unlock();
                return subscriber.on_completed();
            }
            number = ++last_;
            subscribers_.emplace(number, subscriber);
        }
        const std::weak_ptr<EventStream> self = this->weak_from_this();
        subscriber.add([self, number] {
            if (const auto stream = self.lock()) stream->remove(number);
        });
    }

    void remove(std::uint64_t number) {
        std::map<std::uint64_t, rxcpp::subscriber<T>> dropped;  // destroyed without the lock
        const std::scoped_lock lock(mutex_);
        if (auto node = subscribers_.extract(number)) dropped.insert(std::move(node));
    }

    std::unique_ptr<Delivery> take() {
        const std::scoped_lock lock(mutex_);
        for (; !waiting_.empty(); waiting_.pop_front()) {
            try {
                auto delivery = std::make_unique<Delivery>(std::move(waiting_.front()),
                                                           std::vector<rxcpp::subscriber<T>>());
                for (const auto& [number, subscriber] : subscribers_)
                    delivery->second.push_back(subscriber);
                waiting_.pop_front();
                return delivery;
            } catch (const std::bad_alloc&) {  // This one is lost; those after it are not.
            }
        }
        isSending_ = false;
        return nullptr;
    }

    std::mutex mutex_;
    std::uint64_t last_ = 0;
    std::map<std::uint64_t, rxcpp::subscriber<T>> subscribers_;
    std::deque<T> waiting_;
    bool isSending_ = false;
    bool isComplete_ = false;
};

}  // namespace KestrinHousehold::internal
