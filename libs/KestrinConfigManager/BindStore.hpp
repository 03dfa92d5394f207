#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/Export.hpp>

namespace KestrinConfigManager {

/// All that is held about binds at one moment.
struct HeldBinds {
    std::vector<AnonymousBind> binds;              ///< at most one for each profile
    std::optional<std::string> selectedProfileID;  ///< the profile that acts; absent: none yet
    /// Grows with every change. States may reach a store out of order; the highest one counts.
    std::uint64_t revision = 0;
};

/// Keeps binds between runs of the application.
///
/// Contract: `load` is called once, by `ConfigurationManager::useBindStore`. `save` is called after
/// every change, from any thread, also from the thread that delivers replies, and perhaps while its
/// caller holds a lock of these libraries: it must neither block nor call them, so a store that
/// writes to a disk does that on a thread of its own. Neither throws.
class KESTRIN_CONFIG_MANAGER_EXPORT BindStore {
  public:
    /// What a store gave back.
    struct Loaded {
        HeldBinds held;                      ///< all that there was
        std::optional<std::string> warning;  ///< why something was lost; for the application's log
    };

    BindStore() = default;
    BindStore(const BindStore&) = delete;
    BindStore& operator=(const BindStore&) = delete;
    virtual ~BindStore();

    /// Gives back what was saved last. Called once; may block.
    [[nodiscard]] virtual Loaded load() = 0;
    /// Keeps a state, unless it has one with a higher revision. Neither blocks nor throws.
    virtual void save(HeldBinds held) = 0;
};

}  // namespace KestrinConfigManager
