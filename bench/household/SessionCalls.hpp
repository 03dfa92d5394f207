#pragma once

#include <memory>
#include <string_view>

#include <KestrinC/kestrin_profile.h>
#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinHousehold/session/Household.hpp>
#include <KestrinHousehold/session/ProfileSession.hpp>

namespace Bench {

/// One call of the history with a held bind, by the layer named: "KestrinProfile",
/// "KestrinHousehold" or "KestrinC". The transport answers at once, so nothing of it is in the
/// figures.
class SessionCalls {
  public:
    /// Sets the default transport, and the configuration of the file.
    /// @throws std::runtime_error if that has problems
    explicit SessionCalls(const char* configuration);
    SessionCalls(const SessionCalls&) = delete;
    SessionCalls(SessionCalls&&) = delete;
    SessionCalls& operator=(const SessionCalls&) = delete;
    SessionCalls& operator=(SessionCalls&&) = delete;
    ~SessionCalls();

    /// @return whether a list has come
    [[nodiscard]] bool call(std::string_view layer);

  private:
    struct Released {
        void operator()(kestrin_household* household) const;
        void operator()(kestrin_session* session) const;
    };

    [[nodiscard]] bool callInC();

    KestrinConfigManager::AnonymousBind bind_;
    std::unique_ptr<KestrinHousehold::Household> household_;
    std::unique_ptr<KestrinHousehold::ProfileSession> session_;
    std::unique_ptr<kestrin_household, Released> cHousehold_;
    std::unique_ptr<kestrin_session, Released> cSession_;
};

}  // namespace Bench
