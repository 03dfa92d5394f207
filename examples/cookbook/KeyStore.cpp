#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include <KestrinConfigManager/BindStore.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>

namespace {

/// Stands for the platform's: Keychain, Keystore.
class KeyStore {
  public:
    void set(const std::string& key, const std::string& secret) { secrets_[key] = secret; }
    [[nodiscard]] const std::map<std::string, std::string>& all() const { return secrets_; }
    void removeAll() { secrets_.clear(); }

  private:
    std::map<std::string, std::string> secrets_;
};

/// Has a function called on another thread, after those before it.
using Background = std::function<void(std::function<void()>)>;

// [key store]
/// Keeps the binds of a household where the platform keeps secrets.
class KeyStoreBinds final : public KestrinConfigManager::BindStore {
  public:
    KeyStoreBinds(KeyStore& keys, Background background)
        : keys_(keys), background_(std::move(background)) {}

    Loaded load() override {
        Loaded loaded;
        for (const auto& [profileID, token] : keys_.all())
            loaded.held.binds.emplace_back(profileID, token);
        return loaded;
    }

    /// Called on the network thread, among others, so it only hands over.
    void save(KestrinConfigManager::HeldBinds held) override {
        // It may run after the end of this object; the platform's key store stays.
        background_([&keys = keys_, newest = newest_, held = std::move(held)] {
            if (held.revision <= *newest) return;  // states may come out of order
            *newest = held.revision;
            keys.removeAll();
            for (const auto& bind : held.binds) keys.set(bind.profileID, bind.token);
        });
    }

  private:
    KeyStore& keys_;
    Background background_;
    std::shared_ptr<std::uint64_t> newest_ = std::make_shared<std::uint64_t>(0);
};
// [end]

TEST(KeyStoreRecipe, GivesBackInTheNextRunWhatItKept) {
    KeyStore keys;
    const Background atOnce = [](const std::function<void()>& task) { task(); };
    {
        KestrinConfigManager::ConfigurationManager manager;
        EXPECT_EQ(manager.useBindStore(std::make_shared<KeyStoreBinds>(keys, atOnce)),
                  std::nullopt);
        manager.storeBind({"parent", "t1"});
    }
    KestrinConfigManager::ConfigurationManager manager;
    EXPECT_EQ(manager.useBindStore(std::make_shared<KeyStoreBinds>(keys, atOnce)), std::nullopt);
    manager.selectProfile("parent");
    EXPECT_EQ(manager.bind(false)->token, "t1");
}

}  // namespace
