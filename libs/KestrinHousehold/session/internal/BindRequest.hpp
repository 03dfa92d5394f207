#pragma once

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinHousehold/session/internal/Attempts.hpp>
#include <KestrinHousehold/session/internal/ProfileBind.hpp>

namespace KestrinHousehold::internal {

/// The request for the bind of a profile.
class BindRequest final : public Attempts {
  public:
    explicit BindRequest(std::shared_ptr<ProfileBind> bind);

    void begin();

  private:
    void send(const rxcpp::composite_subscription& attempt) override;
    void fail(const std::exception_ptr& error) override;
    void arrived(KestrinConfigManager::AnonymousBind bind);

    const std::shared_ptr<ProfileBind> bind_;
};

}  // namespace KestrinHousehold::internal
