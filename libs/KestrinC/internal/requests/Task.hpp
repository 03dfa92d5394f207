#pragma once

#include <functional>
#include <memory>
#include <utility>

#include <KestrinC/internal/border/Handles.hpp>
#include <KestrinC/internal/hooks/Hooks.hpp>

namespace KestrinC::internal {

/// What a task of the application's does, once.
class TaskBody {
  public:
    TaskBody() = default;
    TaskBody(const TaskBody&) = delete;
    TaskBody& operator=(const TaskBody&) = delete;
    virtual ~TaskBody() = default;
    virtual void run() noexcept = 0;
    /// Never runs.
    virtual void drop() noexcept {}
};

/// A function as a body.
class FunctionBody final : public TaskBody {
  public:
    explicit FunctionBody(std::function<void()> function) : function_(std::move(function)) {}
    void run() noexcept override { function_(); }

  private:
    std::function<void()> function_;
};

}  // namespace KestrinC::internal

struct kestrin_task {
    std::shared_ptr<KestrinC::internal::TaskBody> body;
};

struct kestrin_executor {
    using Hooks = KestrinC::internal::Hooks<kestrin_executor_hooks>;
    std::shared_ptr<const Hooks> hooks;
};

namespace KestrinC::internal {

template <>
inline constexpr const char* handleName<kestrin_task> = "the task";
template <>
inline constexpr const char* handleName<kestrin_executor> = "the executor";

}  // namespace KestrinC::internal
