#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include <KestrinC/internal/border/Problem.hpp>

namespace KestrinC::internal {

/// What a handle is called in messages, e.g. "session".
template <class Handle>
inline constexpr const char* handleName = "handle";

// What a library with checks knows of its handles; without checks these do next to nothing.

/// Notes a handle.
/// @param name  of its kind; lives as long as the process
/// @throws std::bad_alloc
void noteMade(const void* handle, const char* name);

/// Ends the process with a message that names the function unless the handle is in use.
void verifyInUse(const void* handle, const char* name, const char* function) noexcept;

/// The same, and notes that it is in use no more: of several releases the first one passes.
void noteReleased(const void* handle, const char* name, const char* function) noexcept;

/// Frees the memory of a handle whose object was destroyed; with checks, later, so that what was
/// released can be told from what is new for a while.
void retire(void* handle) noexcept;

/// A handle for the application. `retired` is its counterpart.
template <class Handle, class... Arguments>
[[nodiscard]] Handle* made(Arguments&&... arguments) {
    auto handle = std::make_unique<Handle>(std::forward<Arguments>(arguments)...);
    noteMade(handle.get(), handleName<Handle>);
    return handle.release();
}

/// The object of a handle that the application uses.
/// @throws Refused if it is null
template <class Handle>
[[nodiscard]] Handle& inUse(Handle* handle, const char* function) {
    verifyInUse(handle, handleName<Handle>, function);
    if (handle == nullptr)
        throw Refused(KESTRIN_INVALID_ARGUMENT, std::string(handleName<Handle>) + " is NULL");
    return *handle;
}

/// Ends a handle; null is none.
template <class Handle>
void retired(Handle* handle, const char* function) noexcept {
    if (handle == nullptr) return;
    noteReleased(handle, handleName<Handle>, function);
    std::destroy_at(handle);
    retire(handle);
}

}  // namespace KestrinC::internal
