#include "HiddenBinds.hpp"

#include <utility>

namespace KestrinProfileCLI {

using KestrinConfigManager::HeldBinds;

HiddenBinds::HiddenBinds(Terminal& terminal, std::shared_ptr<BindStore> kept)
    : terminal_(terminal), kept_(std::move(kept)) {}

HiddenBinds::Loaded HiddenBinds::load() {
    if (!kept_) return {};
    Loaded loaded = kept_->load();
    hide(loaded.held);
    return loaded;
}

void HiddenBinds::save(HeldBinds held) {
    hide(held);
    if (kept_) kept_->save(std::move(held));
}

void HiddenBinds::hide(const HeldBinds& held) {
    for (const auto& bind : held.binds)
        terminal_.hide(bind.token);
}

}  // namespace KestrinProfileCLI
