#pragma once

/// @file
/// The error handle of the Rx subset and the few helpers around it.

#include <exception>
#include <string>
#include <type_traits>
#include <utility>

#include "detail/namespace.hpp"

namespace rxcpp::inline bundled {

/// Helpers that do not concern a particular observable.
namespace util {

/// The handle that carries any error; the exception object in it is shared, never copied.
using error_ptr = std::exception_ptr;

/// Makes an error handle.
///
/// @param error an exception object, or an error handle, which is returned as it is.
/// @return the handle. Safe to call from any thread.
template <class Error>
error_ptr make_error_ptr(Error&& error) {
    if constexpr (std::is_same_v<std::decay_t<Error>, error_ptr>)
        return std::forward<Error>(error);
    else
        return std::make_exception_ptr(std::forward<Error>(error));
}

/// Throws the exception in `error`, which must not be null. Safe to call from any thread.
[[noreturn]] inline void rethrow_exception(const error_ptr& error) {
    std::rethrow_exception(error);
}

/// @return the exception that the calling thread is handling, or a null handle if there is none.
inline error_ptr current_exception() {
    return std::current_exception();
}

/// Gives a text to show for an error.
///
/// @param error the error, which must not be null.
/// @return what() of a std::exception, and a fixed text for any other type. Safe to call from any
///         thread.
inline std::string what(const error_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "error of a type that does not derive from std::exception";
    }
}

}  // namespace util

namespace rxu = util;

}  // namespace rxcpp::inline bundled
