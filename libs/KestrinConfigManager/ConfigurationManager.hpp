#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/BindStore.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/Export.hpp>

namespace KestrinConfigManager {

/// What the application is configured with and which binds it holds. Every member may be called
/// from any thread; none calls out with a lock held.
///
/// Binds are held under the identifier of their profile. The parent's bind is the one of the
/// configuration's parent profile; the current bind is the one of the selected profile. The first
/// bind that is stored selects its profile, later ones do not; `selectProfile` does.
class KESTRIN_CONFIG_MANAGER_EXPORT ConfigurationManager {
  public:
    /// Not configured, without binds. Applications use `sharedInstance`; tests have their own.
    ConfigurationManager() = default;
    ConfigurationManager(const ConfigurationManager&) = delete;
    ConfigurationManager& operator=(const ConfigurationManager&) = delete;
    ~ConfigurationManager() = default;

    /// The one that `KestrinProfile` uses. It lives until the process has ended.
    [[nodiscard]] static ConfigurationManager& sharedInstance();

    /// `sharedInstance().bind(parent)`.
    [[nodiscard]] static std::optional<AnonymousBind> profileBind(bool parent);

    /// The parent profile of the shared instance's configuration; empty while there is none.
    [[nodiscard]] static std::string parentProfileID();

    /// The current configuration; null until the application is configured. The snapshot stays
    /// as it is while another replaces it.
    [[nodiscard]] std::shared_ptr<const Configuration> currentConfiguration() const;

    /// Replaces the configuration. Binds stay.
    void configure(Configuration configuration);

    /// Forgets the configuration; binds stay.
    void removeConfiguration();

    /// Loads a configuration file and, if all is well with it, makes it the current one.
    /// @return every problem of the file; the former configuration stays unless this is empty
    [[nodiscard]] std::vector<ConfigurationProblem> load(const std::filesystem::path& file);

    /// The bind held for the parent profile (true) or for the selected profile (false); absent
    /// if none is held. It may have expired: see `AnonymousBind::isValid`.
    [[nodiscard]] std::optional<AnonymousBind> bind(bool parent) const;

    /// All binds that are held, and which profile is selected, at one moment.
    [[nodiscard]] HeldBinds heldBinds() const;

    /// Stores a bind under its profile identifier, in the place of the one that is held for that
    /// profile. This is how an application stores a bind that it has as a whole.
    void storeBind(AnonymousBind bind);

    /// First half of storing a bind in two steps: notes for which profile the calling thread's next
    /// `setBindToken` is. Stores nothing by itself. A thread notes one profile at a time, for one
    /// object; the note ends with the thread.
    void setBindProfileID(std::string profileID);

    /// Second half: stores the token under the profile identifier that the same thread noted
    /// before, so that binds decoded on two threads at once never end up mixed. An absent token
    /// drops the bind held for that profile. Does nothing if no identifier was noted.
    void setBindToken(std::optional<std::string> token);

    /// Selects the profile whose bind is the current one.
    void selectProfile(std::string profileID);

    /// The selected profile; absent before the first bind and the first selection.
    [[nodiscard]] std::optional<std::string> selectedProfileID() const;

    /// What follows a reply with status 403: drops all held binds, and calls the application's
    /// handler if it is due (see `setForbiddenReplyHandler`). No operation asks for a new bind by
    /// itself: the application does, with `Profile::requestAnonymousBind`.
    ///
    /// `KestrinProfile` calls this on the thread that delivers the reply, once for each 403 and
    /// twice for one that answers the request for an anonymous bind.
    void reactToForbiddenReply();

    /// Sets what is called after a reply with status 403, once the binds are dropped. It is called
    /// once, however many replies are refused, and then not again until a bind has been stored. So
    /// it may ask for a new bind: if that is refused as well, the handler is not called again.
    ///
    /// It runs on the thread that delivered the reply, may use this object, and must neither block
    /// nor throw. It should not repeat the request that was refused: with a new bind that is
    /// refused again, the two would never end.
    /// @param handler  empty takes the former one back
    void setForbiddenReplyHandler(std::function<void()> handler);

    /// Replaces the reaction as a whole: no bind is dropped, the handler is not called. A reaction
    /// is called for each 403, without the limit of the handler, so it must send no request. It
    /// runs on the thread that delivered the reply and must neither block nor throw.
    /// @param reaction  empty brings back the default one
    void setForbiddenReplyReaction(std::function<void()> reaction);

    /// Drops all held binds; the selected profile stays selected.
    void dropBinds();

    /// From now on binds are kept in this store, and what it holds replaces what is held now. Null
    /// keeps them in memory only, which is the default. A bind that cannot be sent (see
    /// `AnonymousBind::unsendableText`) is dropped, here and from the store.
    /// @return why the store gave back less than it should have; absent if nothing is missing
    std::optional<std::string> useBindStore(std::shared_ptr<BindStore> store);

  private:
    static std::uint64_t nextNumber() noexcept;
    template <class Edit>
    void updateBinds(Edit edit);

    const std::uint64_t number_ = nextNumber();
    mutable std::mutex mutex_;
    std::shared_ptr<const Configuration> configuration_;
    HeldBinds held_;
    std::shared_ptr<BindStore> store_;
    std::function<void()> handler_;
    bool handlerIsDue_ = true;
    std::function<void()> reaction_;
};

}  // namespace KestrinConfigManager
