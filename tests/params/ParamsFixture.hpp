#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinConfigManager/TextMap.hpp>
#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/params/ProfileParams.hpp>
#include <KestrinProfile/params/SearchParams.hpp>

namespace KestrinConfigManager {

inline void PrintTo(const AnonymousBind& bind, std::ostream* out) {
    *out << bind.encode().toJSON();
}

}  // namespace KestrinConfigManager

namespace KestrinProfile {

/// Sets what only the library may set.
struct ParamsTestAccess {
    static void setOperation(auto& params, std::optional<ProfileOperation> operation) {
        params.operation_ = operation;
    }
    static void setType(ProfileParams& params, std::optional<Types> type) { params.type_ = type; }
    static void setBind(auto& params, std::optional<KestrinConfigManager::AnonymousBind> bind) {
        params.bind_ = std::move(bind);
    }
};

}  // namespace KestrinProfile

namespace TestSupport {

/// Every operation, and an absent one.
inline std::vector<std::optional<KestrinProfile::ProfileOperation>> allOperations() {
    std::vector<std::optional<KestrinProfile::ProfileOperation>> all{std::nullopt};
    for (std::size_t ordinal = 0; ordinal < KestrinProfile::profileOperationCount; ++ordinal)
        all.emplace_back(static_cast<KestrinProfile::ProfileOperation>(ordinal));
    return all;
}

inline std::string nameOf(std::optional<KestrinProfile::ProfileOperation> operation) {
    return operation ? std::string(rawValue(*operation)) : "no operation";
}

/// A body as text; "absent" where there is none.
inline std::string bodyText(const KestrinConfigManager::APIParams& params) {
    const auto body = params.dictionaryRepresentation();
    return body ? body->toJSON() : "absent";
}

/// A shared configuration manager that is configured with the brand "acme", has "parent" for the
/// parent profile and "child" for the selected one, and holds no bind.
class ParamsFixture : public testing::Test {
  protected:
    ParamsFixture() {
        manager.dropBinds();
        manager.selectProfile("child");
        configure("acme");
    }

    ~ParamsFixture() override {
        manager.dropBinds();
        manager.removeConfiguration();
    }

    void configure(std::optional<std::string> brand) {
        KestrinConfigManager::Configuration configuration;
        configuration.parentProfileID = "parent";
        if (brand) configuration.brand = KestrinConfigManager::Brand{*std::move(brand)};
        manager.configure(std::move(configuration));
    }

    void hold(const KestrinConfigManager::AnonymousBind& held) {
        manager.setBindProfileID(held.profileID);
        manager.setBindToken(held.token);
    }

    void holdBoth() {
        hold(parentBind);
        hold(childBind);
    }

    KestrinConfigManager::ConfigurationManager& manager =
        KestrinConfigManager::ConfigurationManager::sharedInstance();
    const KestrinConfigManager::AnonymousBind parentBind{"parent", "parent-token"};
    const KestrinConfigManager::AnonymousBind childBind{"child", "child-token"};
    const KestrinConfigManager::AnonymousBind bind{"p1", "t1"};
    const KestrinConfigManager::TextMap bindHeaders{{"Authorization", "JWT t1"},
                                                    {"PXRO-PROFILE-ID", "p1"}};
};

}  // namespace TestSupport
