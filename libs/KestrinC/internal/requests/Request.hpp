#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include <rxcpp/rx-lite.hpp>

#include <HalvardSling/rx/Observable.hpp>
#include <KestrinC/internal/border/Handles.hpp>
#include <KestrinC/internal/requests/Result.hpp>
#include <KestrinC/internal/requests/Task.hpp>

namespace KestrinC::internal {

/// An application's completion, taken over.
struct Completion {
    Hooks<kestrin_completion> hooks;
    std::shared_ptr<const kestrin_executor::Hooks> executor;  ///< null: none

    [[nodiscard]] static Completion taken(const kestrin_completion* given, const char* function);
};

/// What `kestrin_request` stands for.
class Cancellable {
  public:
    Cancellable() = default;
    Cancellable(const Cancellable&) = delete;
    Cancellable& operator=(const Cancellable&) = delete;
    virtual ~Cancellable() = default;
    virtual void cancel() noexcept = 0;
};

/// A request that was begun, up to its completion. Whoever settles it first decides what it ends
/// with.
class Request final : public TaskBody,
                      public Cancellable,
                      public std::enable_shared_from_this<Request> {
    struct Key {};  // so that only `made` makes one

  public:
    /// @throws std::bad_alloc; the context is released then
    [[nodiscard]] static std::shared_ptr<Request> made(Completion completion);
    Request(Key key, Completion completion);
    ~Request() override;

    /// Where the events of its observable go.
    template <class T>
    void subscribeTo(const HalvardSling::Observable<T>& source);

    /// Ends it with a result, unless it has ended. Takes the result over.
    void settle(kestrin_result* result) noexcept;

    void cancel() noexcept override;

    /// Takes it back: the completion is never called.
    /// @return whether that was so; false: it has ended
    [[nodiscard]] bool takeBack() noexcept;

    /// Calls the completion, as the executor's task.
    void run() noexcept override;
    void drop() noexcept override;

  private:
    void deliver(kestrin_result* result) noexcept;
    [[nodiscard]] bool claim() noexcept { return !settled_.exchange(true); }

    Completion completion_;
    rxcpp::composite_subscription subscription_;
    std::atomic<bool> settled_{false};
    kestrin_result* result_ = nullptr;  // on its way to the executor
    kestrin_task* task_ = nullptr;      // made before it is needed, when memory may be lacking
};

/// Ends a request whose observable ends without a word.
class Ending {
  public:
    explicit Ending(std::shared_ptr<Request> request) : request_(std::move(request)) {}
    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;
    ~Ending();

    void settle(kestrin_result* result) const noexcept { request_->settle(result); }

  private:
    std::shared_ptr<Request> request_;
};

/// What an observable has emitted.
template <class T>
[[nodiscard]] kestrin_result* resultOf(T&& value) noexcept {
    try {
        return valueResult(std::forward<T>(value));
    } catch (...) {
        return outOfMemoryResult();
    }
}

template <class T>
void Request::subscribeTo(const HalvardSling::Observable<T>& source) {
    const auto ending = std::make_shared<const Ending>(shared_from_this());
    source.subscribe(
        subscription_, [ending](T value) { ending->settle(resultOf(std::move(value))); },
        [ending](const std::exception_ptr& error) { ending->settle(errorResult(error)); }, [] {});
}

}  // namespace KestrinC::internal

struct kestrin_request {
    std::shared_ptr<KestrinC::internal::Cancellable> cancellable;
};

namespace KestrinC::internal {

template <>
inline constexpr const char* handleName<kestrin_request> = "the request";

/// Notes that something was begun, so that the exit of the process is noticed.
void noteBegun() noexcept;

/// Begins a request.
/// @param make  has the request that it gets subscribe to something
template <class Make>
kestrin_status begin(const char* function, const kestrin_completion* completion,
                     kestrin_request** place, const Make& make) noexcept {
    if (place != nullptr) *place = nullptr;
    return guarded(function, [&] {
        auto taken = Completion::taken(completion, function);
        const auto request = Request::made(std::move(taken));
        kestrin_request* handle = nullptr;
        try {
            if (place != nullptr)
                *place = handle = internal::made<kestrin_request>(kestrin_request{request});
            make(*request);
        } catch (...) {
            // What has ended meanwhile has had its effect.
            if (!request->takeBack()) return;
            if (place != nullptr) *place = nullptr;
            retired(handle, function);
            throw;
        }
        noteBegun();
    });
}

}  // namespace KestrinC::internal
