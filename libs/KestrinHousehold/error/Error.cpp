#include <string>

#include <KestrinHousehold/error/Error.hpp>

namespace KestrinHousehold {

using KestrinProfile::ErrorDescription;
using KestrinProfile::ErrorNotice;

namespace {

ErrorNotice noticeOf(OutboxError::Case value) noexcept {
    switch (value) {
        case OutboxError::Case::invalidWrite:
            return ErrorNotice::mendInput;
        case OutboxError::Case::full:
            return ErrorNotice::noNetwork;
        case OutboxError::Case::storeUnavailable:
            return ErrorNotice::broken;
        case OutboxError::Case::notStored:
            return ErrorNotice::noSpace;
        case OutboxError::Case::closed:
            return ErrorNotice::nothing;
    }
    return ErrorNotice::unknown;
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
