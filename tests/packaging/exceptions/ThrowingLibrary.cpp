#include "ThrowingLibrary.hpp"

#include <HalvardSling/http/SlingError.hpp>
#include <KestrinConfigManager/ConfigurationManagerError.hpp>
#include <KestrinProfile/model/ProfileError.hpp>

void throwProfileError(int code) {
    throw KestrinProfile::ProfileError(static_cast<KestrinProfile::ProfileError::Case>(code));
}

void throwConfigurationManagerError() {
    using KestrinConfigManager::ConfigurationManagerError;
    throw ConfigurationManagerError::serviceNotConfigured;
}

void throwSlingError() {
    throw HalvardSling::SlingError::httpStatus(403, "https://a:443", {});
}
