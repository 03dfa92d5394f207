#pragma once

#include <memory>
#include <optional>
#include <string>

#include <KestrinConfigManager/AnonymousBind.hpp>
#include <KestrinConfigManager/Configuration.hpp>

namespace KestrinConfigManager {

class ConfigurationManager {
  public:
    static ConfigurationManager& sharedInstance() {
        static ConfigurationManager only;
        return only;
    }
    static std::optional<AnonymousBind> profileBind(bool parent) {
        return sharedInstance().bind(parent);
    }
    static std::string parentProfileID() { return "own parent"; }

    std::optional<AnonymousBind> bind(bool) const { return held; }
    std::shared_ptr<const Configuration> currentConfiguration() const {
        return std::make_shared<const Configuration>();
    }
    void setBindProfileID(const std::string& profileID) { staged = profileID; }
    void setBindToken(const std::optional<std::string>& token) {
        held = AnonymousBind{staged, token.value_or("")};
    }
    void reactToForbiddenReply() { ++reactions; }

    std::string staged;
    std::optional<AnonymousBind> held;
    int reactions = 0;
};

}  // namespace KestrinConfigManager
