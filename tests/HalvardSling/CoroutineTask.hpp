#pragma once

#include <coroutine>
#include <exception>
#include <utility>

namespace TestSupport {

/// A coroutine that begins at once and is destroyed with this object.
class Task {
  public:
    struct promise_type {
        Task get_return_object() {
            return Task(std::coroutine_handle<promise_type>::from_promise(*this));
        }
        std::suspend_never initial_suspend() const noexcept { return {}; }
        std::suspend_always final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        void unhandled_exception() const noexcept { std::terminate(); }
    };

    Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Task& operator=(Task&&) = delete;
    ~Task() { destroy(); }

    [[nodiscard]] bool done() const { return handle_.done(); }
    void destroy() {
        if (const auto handle = std::exchange(handle_, nullptr)) handle.destroy();
    }

  private:
    explicit Task(std::coroutine_handle<promise_type> handle) : handle_(handle) {}

    std::coroutine_handle<promise_type> handle_;
};

}  // namespace TestSupport
