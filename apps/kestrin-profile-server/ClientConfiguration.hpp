#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include <kestrin-profile-server/domain/Households.hpp>

namespace KestrinProfileServer {

/// The configuration with which a client reaches this service: every operation of the table of
/// routes, and the household's secret for the bind.
[[nodiscard]] std::string clientConfiguration(const std::string& baseURL, const std::string& brand,
                                              const Household& household);

/// Where the configuration of a household is for who was shown the address, on a QR code say.
/// Nobody guesses it who does not know the household's secret, and the secret is not in it.
[[nodiscard]] std::string invitationURL(const std::string& baseURL, const Household& household);

/// Whether a key is that of the household's invitation.
[[nodiscard]] bool isInvitationKey(std::string_view key, const Household& household);

/// Writes a file that only its owner can read, in one step: a reader sees the former content or
/// the new one. Throws StartError when it cannot.
void writePrivateFile(const std::filesystem::path& file, const std::string& content);

/// Whether a text is what `clientConfiguration` makes, and nobody has changed it since.
[[nodiscard]] bool isClientConfiguration(const std::string& text);

}  // namespace KestrinProfileServer
