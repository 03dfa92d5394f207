// What the process has once: its configuration and its binds.

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <KestrinC/internal/border/Handles.hpp>
#include <KestrinC/internal/hooks/Hooks.hpp>
#include <KestrinC/internal/records/Records.hpp>
#include <KestrinC/internal/requests/Result.hpp>
#include <KestrinConfigManager/BindStore.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/internal/HeldBinds.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>

struct kestrin_loaded_binds {
    KestrinConfigManager::HeldBinds held;
};

namespace KestrinC::internal {

template <>
inline constexpr const char* handleName<kestrin_loaded_binds> = "the loaded binds";

namespace {

using KestrinConfigManager::AnonymousBind;
using KestrinConfigManager::BindStore;
using KestrinConfigManager::Configuration;
using KestrinConfigManager::ConfigurationManager;
using KestrinConfigManager::ConfigurationProblem;
using KestrinConfigManager::HeldBinds;

/// The application's functions as a store.
class HookBindStore final : public BindStore {
  public:
    explicit HookBindStore(Hooks<kestrin_bind_store> hooks) : hooks_(std::move(hooks)) {}

    Loaded load() override {
        auto* const loaded = made<kestrin_loaded_binds>();
        hooks_.functions.load(hooks_.context(), loaded);
        Loaded result{std::move(loaded->held), {}};
        retired(loaded, "kestrin_bind_store.load");
        return result;
    }

    void save(HeldBinds held) override {
        try {
            Arena arena;
            kestrin_binds binds{};
            kestrin_text selected{};
            show(held.binds, binds, arena);
            show(held.selectedProfileID, selected, arena);
            hooks_.functions.save(hooks_.context(), &binds, selected, held.revision);
        } catch (...) {  // There is no memory; the next state has what this one has.
        }
    }

  private:
    const Hooks<kestrin_bind_store> hooks_;
};

void add(HeldBinds& held, AnonymousBind bind) {
    if (const char* const key = bind.unsendableText())
        throw Refused(
            KESTRIN_INVALID_ARGUMENT,
            std::string("bind.") +
                (key == std::string_view(AnonymousBind::Keys::token) ? "token" : "profile_id") +
                " holds what no header may carry");
    KestrinConfigManager::internal::put(held, std::move(bind));
}

std::string textOf(const std::vector<ConfigurationProblem>& problems) {
    std::string text = "the configuration has problems";
    for (const auto& problem : problems)
        text += '\n' + problem.path + ": " + problem.message;
    return text;
}

ConfigurationManager& manager() {
    return ConfigurationManager::sharedInstance();
}

}  // namespace

}  // namespace KestrinC::internal

using namespace KestrinC::internal;

const char* kestrin_version(void) {
    return KESTRIN_VERSION;
}

const char* kestrin_operation_name(kestrin_operation operation) {
    if (operation < KESTRIN_ANONYMOUS_BIND ||
        operation >= caseCount<KestrinProfile::ProfileOperation>)
        return "";
    return rawValue(static_cast<KestrinProfile::ProfileOperation>(operation)).data();
}

kestrin_status kestrin_configure(kestrin_text json) {
    return guarded("kestrin_configure", [&] {
        auto result = KestrinConfigManager::parseConfiguration(readText(json, "json"));
        if (const auto* const problems = std::get_if<std::vector<ConfigurationProblem>>(&result))
            throw Refused(KESTRIN_INVALID_ARGUMENT, textOf(*problems));
        manager().configure(std::get<Configuration>(std::move(result)));
    });
}

kestrin_status kestrin_remove_configuration(void) {
    return guarded("kestrin_remove_configuration", [] { manager().removeConfiguration(); });
}

kestrin_status kestrin_store_bind(const kestrin_bind* bind) {
    return guarded("kestrin_store_bind",
                   [&] { manager().storeBind(readAs<AnonymousBind>(bind, "bind")); });
}

kestrin_status kestrin_select_profile(kestrin_text profile_id) {
    return guarded("kestrin_select_profile",
                   [&] { manager().selectProfile(readText(profile_id, "profile_id")); });
}

kestrin_status kestrin_drop_binds(void) {
    return guarded("kestrin_drop_binds", [] { manager().dropBinds(); });
}

kestrin_status kestrin_held_binds(kestrin_result** result) {
    return guarded("kestrin_held_binds", [&] {
        requirePlace(result, "result");
        *result = valueResult(manager().heldBinds());
    });
}

kestrin_status kestrin_set_bind_store(const kestrin_bind_store* store) {
    return guarded("kestrin_set_bind_store", [&] {
        std::shared_ptr<BindStore> used;
        if (store != nullptr)
            used = std::make_shared<HookBindStore>(Hooks<kestrin_bind_store>::taken(
                store, "store", &kestrin_bind_store::load, &kestrin_bind_store::save));
        // What cannot be used was refused when it was handed over.
        static_cast<void>(manager().useBindStore(std::move(used)));
    });
}

kestrin_status kestrin_loaded_binds_add(kestrin_loaded_binds* loaded, const kestrin_bind* bind) {
    return guarded("kestrin_loaded_binds_add", [&] {
        add(inUse(loaded, "kestrin_loaded_binds_add").held, readAs<AnonymousBind>(bind, "bind"));
    });
}

kestrin_status kestrin_loaded_binds_select(kestrin_loaded_binds* loaded, kestrin_text profile_id) {
    return guarded("kestrin_loaded_binds_select", [&] {
        inUse(loaded, "kestrin_loaded_binds_select").held.selectedProfileID =
            readText(profile_id, "profile_id");
    });
}
