#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/BindStore.hpp>
#include <KestrinConfigManager/Configuration.hpp>

namespace KestrinConfigManager {

/// What the application is configured with and which binds it holds. Every member may be called
/// from any thread; none calls out with a lock held.
///
/// Binds are held under the identifier of their profile. The parent's bind is the one of the
/// configuration's parent profile; the current bind is the one of the selected profile. The first
/// bind that is stored selects its profile, later ones do not; `selectProfile` does.
class ConfigurationManager {
  public:
    ConfigurationManager() = default;
    ConfigurationManager(const ConfigurationManager&) = delete;
    ConfigurationManager(ConfigurationManager&&) = delete;
    ConfigurationManager& operator=(const ConfigurationManager&) = delete;
    ConfigurationManager& operator=(ConfigurationManager&&) = delete;
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
    /// where none is held. It may have expired: see `AnonymousBind::isValid`.
    [[nodiscard]] std::optional<AnonymousBind> bind(bool parent) const;

    /// First half of storing a bind: notes for which profile the calling thread's next
    /// `setBindToken` is. Holds nothing by itself.
    void setBindProfileID(std::string profileID);

    /// Second half: stores the token under the profile identifier that the same thread noted
    /// before, so that binds decoded on two threads at once never end up mixed. An absent token
    /// drops the bind held for that profile. Does nothing where no identifier was noted.
    void setBindToken(std::optional<std::string> token);

    /// Selects the profile whose bind is the current one.
    void selectProfile(std::string profileID);

    /// The selected profile; absent before the first bind and the first selection.
    [[nodiscard]] std::optional<std::string> selectedProfileID() const;

    /// What follows a reply with status 403: by default drops all held binds, so that the next
    /// call asks for a new one, and then calls the application's handler.
    void reactToForbiddenReply();

    /// Called at the end of the default reaction, on the thread that delivered the reply. It may
    /// use this object, and must neither block nor throw. Empty takes it back.
    void setForbiddenReplyHandler(std::function<void()> handler);

    /// Replaces the reaction as a whole, under the rules of the handler; empty brings back the
    /// default one.
    void setForbiddenReplyReaction(std::function<void()> reaction);

    /// Drops all held binds; the selected profile stays selected.
    void dropBinds();

    /// From now on binds are kept in this store, and what it holds replaces what is held now. Null
    /// keeps them in memory only, which is the default.
    /// @return why the store gave back less than it should have; absent where all was well
    std::optional<std::string> useBindStore(std::shared_ptr<BindStore> store);

  private:
    template <class Edit>
    void change(Edit edit);

    mutable std::mutex mutex_;
    std::shared_ptr<const Configuration> configuration_;
    HeldBinds held_;
    std::map<std::uint64_t, std::string> noted_;  // by the number of the thread
    std::shared_ptr<BindStore> store_;
    std::function<void()> handler_;
    std::function<void()> reaction_;
};

}  // namespace KestrinConfigManager
