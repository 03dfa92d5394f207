// The numbers of the interface are those of the libraries. Each switch lacks what is added there:
// then the compiler warns.

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinC/kestrin_profile.h>
#include <KestrinHousehold/outbox/OutboxError.hpp>
#include <KestrinHousehold/outbox/OutboxEvent.hpp>
#include <KestrinHousehold/session/HouseholdLog.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/service/Error.hpp>

namespace KestrinC::internal {

namespace {

using HalvardSling::SlingErrorKind;
using KestrinHousehold::HouseholdEvent;
using KestrinHousehold::OutboxError;
using KestrinHousehold::OutboxEvent;
using KestrinProfile::ErrorNotice;
using KestrinProfile::ProfileOperation;

constexpr int inC(ErrorNotice notice) {
    using enum ErrorNotice;
    switch (notice) {
        case nothing:
            return KESTRIN_SHOW_NOTHING;
        case noNetwork:
            return KESTRIN_SHOW_NO_NETWORK;
        case serviceDown:
            return KESTRIN_SHOW_SERVICE_DOWN;
        case signInAgain:
            return KESTRIN_SHOW_SIGN_IN_AGAIN;
        case notAllowed:
            return KESTRIN_SHOW_NOT_ALLOWED;
        case mendInput:
            return KESTRIN_SHOW_MEND_INPUT;
        case notSecure:
            return KESTRIN_SHOW_NOT_SECURE;
        case broken:
            return KESTRIN_SHOW_BROKEN;
        case unknown:
            return KESTRIN_SHOW_UNKNOWN;
        case noSpace:
            return KESTRIN_SHOW_NO_SPACE;
    }
    return -1;
}

constexpr int inC(SlingErrorKind kind) {
    using enum SlingErrorKind;
    switch (kind) {
        case httpStatus:
            return KESTRIN_HTTP_STATUS;
        case cannotConnect:
            return KESTRIN_CANNOT_CONNECT;
        case nameNotResolved:
            return KESTRIN_NAME_NOT_RESOLVED;
        case tls:
            return KESTRIN_TLS;
        case connectTimeout:
            return KESTRIN_CONNECT_TIMEOUT;
        case totalTimeout:
            return KESTRIN_TOTAL_TIMEOUT;
        case connectionLost:
            return KESTRIN_CONNECTION_LOST;
        case tooLarge:
            return KESTRIN_TOO_LARGE;
        case malformedURL:
            return KESTRIN_MALFORMED_URL;
        case forbiddenHeader:
            return KESTRIN_FORBIDDEN_HEADER;
        case malformedReply:
            return KESTRIN_MALFORMED_REPLY;
        case redirect:
            return KESTRIN_REDIRECT;
        case cancelled:
            return KESTRIN_TRANSFER_CANCELLED;
        case outOfMemory:
            return KESTRIN_TRANSFER_OUT_OF_MEMORY;
        case malformedBody:
            return KESTRIN_MALFORMED_BODY;
    }
    return -1;
}

constexpr int inC(OutboxError::Case value) {
    using enum OutboxError::Case;
    switch (value) {
        case invalidWrite:
            return KESTRIN_OUTBOX_INVALID_WRITE;
        case full:
            return KESTRIN_OUTBOX_FULL;
        case storeUnavailable:
            return KESTRIN_OUTBOX_STORE_UNAVAILABLE;
        case notStored:
            return KESTRIN_OUTBOX_NOT_STORED;
        case closed:
            return KESTRIN_OUTBOX_CLOSED;
    }
    return -1;
}

constexpr int inC(OutboxEvent::Kind kind) {
    using enum OutboxEvent::Kind;
    switch (kind) {
        case sent:
            return KESTRIN_OUTBOX_SENT;
        case superseded:
            return KESTRIN_OUTBOX_SUPERSEDED;
        case droppedAsStale:
            return KESTRIN_OUTBOX_DROPPED_AS_STALE;
        case refused:
            return KESTRIN_OUTBOX_REFUSED;
        case forgotten:
            return KESTRIN_OUTBOX_FORGOTTEN;
        case expired:
            return KESTRIN_OUTBOX_EXPIRED;
        case dropped:
            return KESTRIN_OUTBOX_DROPPED;
        case overflow:
            return KESTRIN_OUTBOX_OVERFLOW;
        case waitsForBind:
            return KESTRIN_OUTBOX_WAITS_FOR_BIND;
        case delayed:
            return KESTRIN_OUTBOX_DELAYED;
        case storeFailed:
            return KESTRIN_OUTBOX_STORE_FAILED;
    }
    return -1;
}

constexpr int inC(HouseholdEvent::Kind kind) {
    using enum HouseholdEvent::Kind;
    switch (kind) {
        case repeat:
            return KESTRIN_REPEAT;
        case givenUp:
            return KESTRIN_GIVEN_UP;
        case bindRequested:
            return KESTRIN_BIND_REQUESTED;
        case bindRenewed:
            return KESTRIN_BIND_RENEWED;
        case sentOnceMore:
            return KESTRIN_SENT_ONCE_MORE;
    }
    return -1;
}

template <class Enumeration>
constexpr bool agreesUpTo(Enumeration last) {
    for (int number = 0; number <= static_cast<int>(last); ++number)
        if (inC(static_cast<Enumeration>(number)) != number) return false;
    return true;
}

static_assert(agreesUpTo(ErrorNotice::noSpace));
static_assert(agreesUpTo(SlingErrorKind::malformedBody));
static_assert(agreesUpTo(OutboxError::Case::closed));
static_assert(agreesUpTo(OutboxEvent::Kind::storeFailed));
static_assert(agreesUpTo(HouseholdEvent::Kind::sentOnceMore));

// The operations are tied by the table of requests/Operations.cpp, and by how many there are.
static_assert(KESTRIN_ANONYMOUS_BIND == static_cast<int>(ProfileOperation::anonymousBind));
static_assert(KESTRIN_DELETE_SEARCH_HISTORY ==
              static_cast<int>(ProfileOperation::deleteSearchHistory));
static_assert(KestrinProfile::profileOperationCount == KESTRIN_DELETE_SEARCH_HISTORY + 1);

}  // namespace

}  // namespace KestrinC::internal
