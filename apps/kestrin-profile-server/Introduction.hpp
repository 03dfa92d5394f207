#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include <kestrin-profile-server/CommandLine.hpp>

namespace KestrinProfileServer {

/// Writes the client's configuration where the options want it, and says where that is; absent if
/// they want none, or somebody else's stand at every place. Throws StartError when it cannot.
[[nodiscard]] std::optional<std::filesystem::path> writtenConfiguration(const Options& options,
                                                                        Service& service);

/// What there is to know before others reach the service, as a line with its end; empty if only
/// this computer does.
[[nodiscard]] std::string warning(const Options& options);

/// How a phone gets the client's configuration: its address, also as a QR code, in lines with their
/// ends; empty if nobody has asked, and the service is for this computer, or no person reads this.
/// @param publicURL    where clients reach the service
/// @param isForPeople  whether it is shown on a terminal
[[nodiscard]] std::string invitation(const Options& options, const std::string& publicURL,
                                     const Household& household, bool isForPeople);

/// What to try, in a few lines, each with its end.
[[nodiscard]] std::string introduction(const Options& options, Service& service,
                                       const std::optional<std::filesystem::path>& configuration);

}  // namespace KestrinProfileServer
