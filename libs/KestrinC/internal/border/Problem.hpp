#pragma once

#include <stdexcept>
#include <string>

#include <KestrinC/kestrin_profile.h>

namespace KestrinC::internal {

/// What the caller of a function of the interface is told instead of its effect.
class Refused final : public std::runtime_error {
  public:
    Refused(kestrin_status status, const std::string& problem)
        : std::runtime_error(problem), status_(status) {}

    [[nodiscard]] kestrin_status status() const noexcept { return status_; }

  private:
    kestrin_status status_;
};

/// Notes the exception that is being handled as this thread's last problem.
/// @return the status that it stands for
kestrin_status noteProblem(const char* function) noexcept;

/// Runs what a function of the interface does; no exception leaves it.
template <class Body>
kestrin_status guarded(const char* function, const Body& body) noexcept {
    try {
        body();
        return KESTRIN_OK;
    } catch (...) {
        return noteProblem(function);
    }
}

/// Where a result goes.
/// @throws Refused if it is null
template <class T>
void requirePlace(T** place, const char* name) {
    if (place == nullptr) throw Refused(KESTRIN_INVALID_ARGUMENT, std::string(name) + " is NULL");
    *place = nullptr;
}

}  // namespace KestrinC::internal
