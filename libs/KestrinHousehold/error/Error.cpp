#include <string>

#include <KestrinHousehold/error/Error.hpp>

namespace KestrinHousehold {

using KestrinProfile::ErrorDescription;
using KestrinProfile::ErrorNotice;

namespace {

ErrorNotice noticeOf(OutboxError::Case value) noexcept {
    using Case = OutboxError::Case;
    if (value == Case::invalidWrite) return ErrorNotice::mendInput;
    if (value == Case::full) return ErrorNotice::noNetwork;
    if (value == Case::storeUnavailable) return ErrorNotice::broken;
    if (value == Case::notStored) return ErrorNotice::noSpace;
    return ErrorNotice::nothing;  // It is closed.
}

}  // namespace

ErrorDescription describe(const std::exception_ptr& error) noexcept try {
    return visitError(
        error,
        [](const OutboxError& known) {
            return ErrorDescription{OutboxError::domain(), known.code(), known.what(),
                                    std::string(known.advice())};
        },
        [&](const std::exception&) { return KestrinProfile::describe(error); });
} catch (...) {  // no memory for the texts
    return KestrinProfile::describe(std::current_exception());
}

ErrorNotice whatToShow(const std::exception_ptr& error) noexcept try {
    return visitError(
        error, [](const OutboxError& known) { return noticeOf(known.value()); },
        [&](const std::exception&) { return KestrinProfile::whatToShow(error); });
} catch (...) {
    return ErrorNotice::unknown;
}

}  // namespace KestrinHousehold
