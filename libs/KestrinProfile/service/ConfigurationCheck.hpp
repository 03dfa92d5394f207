#pragma once

#include <vector>

#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinProfile/Export.hpp>

namespace KestrinProfile {

/// Checks a configuration, loaded or made in code, against what each operation needs: what
/// `KestrinConfigManager`, which knows no operation, cannot see. To be called once, before the
/// configuration is put to use. Any thread; touches neither file nor network.
///
/// Errors are: a service under a name that no operation has, a placeholder that the operation
/// does not fill, a URL without the placeholder that says what the request is about (in its path or
/// its query), a method that does not fit what the operation does, and a body that would not be
/// sent. An operation without a service is a warning.
///
/// It is there only with this repository's `KestrinConfigManager`: how an application's own keeps
/// its services is its own affair.
///
/// @return errors by service, then warnings; empty if all is well. No message shows the value of a
///         header or of a query parameter
[[nodiscard]] KESTRIN_PROFILE_EXPORT std::vector<KestrinConfigManager::ConfigurationProblem>
checkConfiguration(const KestrinConfigManager::Configuration& configuration);

}  // namespace KestrinProfile
