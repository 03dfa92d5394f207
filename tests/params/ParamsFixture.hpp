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

#include "support/PrivateMember.hpp"

namespace KestrinConfigManager {

inline void PrintTo(const AnonymousBind& bind, std::ostream* out) {
    *out << bind.encode().toJSON();
}

}  // namespace KestrinConfigManager

namespace TestSupport {

// The members that only the library may set.
struct ListOperation {
    using Member = std::optional<KestrinProfile::ProfileOperation> KestrinProfile::ProfileParams::*;
    friend Member opened(ListOperation);
};
struct ListBind {
    using Member =
        std::optional<KestrinConfigManager::AnonymousBind> KestrinProfile::ProfileParams::*;
    friend Member opened(ListBind);
};
struct ListType {
    using Member = std::optional<KestrinProfile::Types> KestrinProfile::ProfileParams::*;
    friend Member opened(ListType);
};
struct SearchOperation {
    using Member = std::optional<KestrinProfile::ProfileOperation> KestrinProfile::SearchParams::*;
    friend Member opened(SearchOperation);
};
struct SearchBind {
    using Member =
        std::optional<KestrinConfigManager::AnonymousBind> KestrinProfile::SearchParams::*;
    friend Member opened(SearchBind);
};
template struct Opens<ListOperation, &KestrinProfile::ProfileParams::operation_>;
template struct Opens<ListBind, &KestrinProfile::ProfileParams::bind_>;
template struct Opens<ListType, &KestrinProfile::ProfileParams::type_>;
template struct Opens<SearchOperation, &KestrinProfile::SearchParams::operation_>;
template struct Opens<SearchBind, &KestrinProfile::SearchParams::bind_>;

inline void setOperation(KestrinProfile::ProfileParams& params,
                         std::optional<KestrinProfile::ProfileOperation> operation) {
    params.*opened(ListOperation()) = operation;
}
inline void setOperation(KestrinProfile::SearchParams& params,
                         std::optional<KestrinProfile::ProfileOperation> operation) {
    params.*opened(SearchOperation()) = operation;
}
inline void setBind(KestrinProfile::ProfileParams& params,
                    std::optional<KestrinConfigManager::AnonymousBind> bind) {
    params.*opened(ListBind()) = std::move(bind);
}
inline void setBind(KestrinProfile::SearchParams& params,
                    std::optional<KestrinConfigManager::AnonymousBind> bind) {
    params.*opened(SearchBind()) = std::move(bind);
}
inline void setType(KestrinProfile::ProfileParams& params,
                    std::optional<KestrinProfile::Types> type) {
    params.*opened(ListType()) = type;
}

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
