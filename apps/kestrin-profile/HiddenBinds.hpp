#pragma once

#include <memory>

#include <KestrinConfigManager/BindStore.hpp>

#include "Terminal.hpp"

namespace KestrinProfileCLI {

/// Has the terminal hide the token of every bind that is held, and keeps the binds in another
/// store, if there is one.
class HiddenBinds final : public KestrinConfigManager::BindStore {
  public:
    /// @param terminal  outlives this
    /// @param kept      may be null
    HiddenBinds(Terminal& terminal, std::shared_ptr<BindStore> kept);

    [[nodiscard]] Loaded load() override;
    void save(KestrinConfigManager::HeldBinds held) override;

  private:
    void hide(const KestrinConfigManager::HeldBinds& held);

    Terminal& terminal_;
    std::shared_ptr<BindStore> kept_;
};

}  // namespace KestrinProfileCLI
