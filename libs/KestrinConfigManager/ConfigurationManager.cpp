#include <atomic>
#include <utility>
#include <variant>

#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/internal/HeldBinds.hpp>

namespace KestrinConfigManager {

namespace {

/// A profile whose token is to follow.
struct NotedProfile {
    std::uint64_t manager = 0;  ///< the number of the object that it was noted for
    std::string profileID;
};

/// Of each thread, so that two of them never mix their binds, and that nothing is left of a thread
/// that has ended.
thread_local std::optional<NotedProfile> notedProfile;

using internal::find;

std::optional<AnonymousBind> bindOf(const HeldBinds& held, std::string_view profileID) {
    const auto found = find(held.binds, profileID);
    return found == held.binds.end() ? std::nullopt : std::optional(*found);
}

/// @return whether that changes anything
bool hold(HeldBinds& held, AnonymousBind bind) {
    if (held.selectedProfileID && bindOf(held, bind.profileID) == bind) return false;
    if (!held.selectedProfileID) held.selectedProfileID = bind.profileID;
    internal::put(held, std::move(bind));
    return true;
}

/// @return whether that changes anything
bool drop(HeldBinds& held, std::string_view profileID) {
    return std::erase_if(held.binds, [&](const AnonymousBind& each) {
               return each.profileID == profileID;
           }) > 0;
}

/// Drops the binds that no request can carry. They would make every operation fail.
/// @return what was dropped; absent if nothing was
std::optional<std::string> dropUnsendable(HeldBinds& held) {
    std::optional<std::string> dropped;
    std::erase_if(held.binds, [&](const AnonymousBind& each) {
        const char* const text = each.unsendableText();
        if (text != nullptr)
            dropped = "dropped a bind whose \"" + std::string(text) + "\" can be sent in no header";
        return text != nullptr;
    });
    return dropped;
}

}  // namespace

// Everything that is taken out of use below, a handler or a store or a configuration, is destroyed
// only after the lock is released: its destructor is the application's and may come back here.

/// The numbers tell apart two objects that had the same address one after the other.
std::uint64_t ConfigurationManager::nextNumber() noexcept {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

ConfigurationManager& ConfigurationManager::sharedInstance() {
    // Never destroyed: a thread of the transport may still use it while the process ends.
    static ConfigurationManager& instance = *new ConfigurationManager;
    return instance;
}

std::optional<AnonymousBind> ConfigurationManager::profileBind(bool parent) {
    return sharedInstance().bind(parent);
}

std::string ConfigurationManager::parentProfileID() {
    const auto configuration = sharedInstance().currentConfiguration();
    return configuration ? configuration->parentProfileID : std::string();
}

std::shared_ptr<const Configuration> ConfigurationManager::currentConfiguration() const {
    const std::scoped_lock lock(mutex_);
    return configuration_;
}

void ConfigurationManager::configure(Configuration configuration) {
    auto snapshot = std::make_shared<const Configuration>(std::move(configuration));
    const std::scoped_lock lock(mutex_);
    configuration_.swap(snapshot);
}

void ConfigurationManager::removeConfiguration() {
    std::shared_ptr<const Configuration> former;
    const std::scoped_lock lock(mutex_);
    configuration_.swap(former);
}

std::vector<ConfigurationProblem> ConfigurationManager::load(const std::filesystem::path& file) {
    auto result = loadConfiguration(file);
    if (auto* const problems = std::get_if<std::vector<ConfigurationProblem>>(&result))
        return std::move(*problems);
    configure(std::get<Configuration>(std::move(result)));
    return {};
}

std::optional<AnonymousBind> ConfigurationManager::bind(bool parent) const {
    const std::scoped_lock lock(mutex_);
    if (parent)
        return configuration_ ? bindOf(held_, configuration_->parentProfileID) : std::nullopt;
    return held_.selectedProfileID ? bindOf(held_, *held_.selectedProfileID) : std::nullopt;
}

HeldBinds ConfigurationManager::heldBinds() const {
    const std::scoped_lock lock(mutex_);
    return held_;
}

/// Applies an edit to what is held and tells the store. The edit says whether it changed anything.
template <class Edit>
void ConfigurationManager::updateBinds(Edit edit) {
    HeldBinds changed;
    std::shared_ptr<BindStore> store;
    {
        const std::scoped_lock lock(mutex_);
        if (!edit(held_)) return;
        ++held_.revision;
        if (!store_) return;
        store = store_;
        changed = held_;
    }
    store->save(std::move(changed));
}

void ConfigurationManager::storeBind(AnonymousBind bind) {
    updateBinds([&](HeldBinds& held) {
        handlerIsDue_ = true;
        return hold(held, std::move(bind));
    });
}

void ConfigurationManager::setBindProfileID(std::string profileID) {
    notedProfile = NotedProfile{number_, std::move(profileID)};
}

void ConfigurationManager::setBindToken(std::optional<std::string> token) {
    if (!notedProfile || notedProfile->manager != number_) return;
    std::string profileID = std::move(notedProfile->profileID);
    notedProfile.reset();
    if (token) return storeBind({std::move(profileID), *std::move(token)});
    updateBinds([&](HeldBinds& held) { return drop(held, profileID); });
}

void ConfigurationManager::selectProfile(std::string profileID) {
    updateBinds([&](HeldBinds& held) {
        if (held.selectedProfileID == profileID) return false;
        held.selectedProfileID = std::move(profileID);
        return true;
    });
}

std::optional<std::string> ConfigurationManager::selectedProfileID() const {
    const std::scoped_lock lock(mutex_);
    return held_.selectedProfileID;
}

void ConfigurationManager::reactToForbiddenReply() {
    std::function<void()> handler;
    std::function<void()> reaction;
    {
        const std::scoped_lock lock(mutex_);
        reaction = reaction_;
        if (!reaction && std::exchange(handlerIsDue_, false)) handler = handler_;
    }
    if (reaction) return reaction();
    dropBinds();
    if (handler) handler();
}

void ConfigurationManager::setForbiddenReplyHandler(std::function<void()> handler) {
    const std::scoped_lock lock(mutex_);
    handler_.swap(handler);
    handlerIsDue_ = true;
}

void ConfigurationManager::setForbiddenReplyReaction(std::function<void()> reaction) {
    const std::scoped_lock lock(mutex_);
    reaction_.swap(reaction);
}

void ConfigurationManager::dropBinds() {
    updateBinds([](HeldBinds& held) {
        if (held.binds.empty()) return false;
        held.binds.clear();
        return true;
    });
}

std::optional<std::string> ConfigurationManager::useBindStore(std::shared_ptr<BindStore> store) {
    auto loaded = store ? std::optional(store->load()) : std::nullopt;
    auto dropped = loaded ? dropUnsendable(loaded->held) : std::nullopt;
    {
        const std::scoped_lock lock(mutex_);
        store_.swap(store);
        if (!loaded) return std::nullopt;
        // States of both histories may still be on their way to a store; the next one must beat
        // them.
        loaded->held.revision = std::max(loaded->held.revision, held_.revision);
        held_ = std::move(loaded->held);
    }
    if (!dropped) return std::move(loaded->warning);
    updateBinds([](const HeldBinds&) { return true; });  // The store keeps them no longer.
    return loaded->warning ? *loaded->warning + "; " + *dropped : dropped;
}

}  // namespace KestrinConfigManager
