#pragma once

#include <memory>
#include <utility>

#include <KestrinC/internal/border/Handles.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/session/Household.hpp>
#include <KestrinHousehold/session/ProfileSession.hpp>

// What the handles that several functions share stand for.

struct kestrin_household {
    KestrinHousehold::Household household;
};

struct kestrin_session {
    KestrinHousehold::ProfileSession session;
};

struct kestrin_outbox {
    std::shared_ptr<KestrinHousehold::Outbox> outbox;
};

namespace KestrinC::internal {

template <>
inline constexpr const char* handleName<kestrin_household> = "the household";
template <>
inline constexpr const char* handleName<kestrin_session> = "the session";
template <>
inline constexpr const char* handleName<kestrin_outbox> = "the outbox";

}  // namespace KestrinC::internal
