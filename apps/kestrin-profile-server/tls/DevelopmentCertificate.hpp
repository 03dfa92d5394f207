#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <kestrin-profile-server/domain/Timestamp.hpp>
#include <kestrin-profile-server/tls/TLSIdentity.hpp>

namespace KestrinProfileServer {

/// A certificate for development, and the authority that has signed it.
struct DevelopmentCertificate {
    TLSIdentity identity;
    /// The authority's certificate, which clients have to trust: its file, and its text in PEM.
    std::filesystem::path authorityFile;
    std::string authority;
    /// Whether clients have to be told of it first: it was made just now.
    bool isNewAuthority = false;
};

/// The certificate of a folder, for these names beside "localhost" and the loopback addresses. It
/// is made when there is none, when the names are others, and a month before it ends; so is the
/// authority when it may not sign for the names. It may sign for the names with which it was made
/// and for addresses of private networks (RFC 1918, RFC 4193), and for nothing else (RFC 5280,
/// 4.2.1.10), so that little is lost with its key. Keys are for their owner alone.
/// @param names  of hosts, or addresses without brackets
/// @param now    the time by which certificates begin and end
/// @throws StartError if a name cannot be one, or the folder cannot be written
[[nodiscard]] DevelopmentCertificate developmentCertificate(const std::filesystem::path& folder,
                                                            std::vector<std::string> names,
                                                            Milliseconds now = systemTime());

/// Where the authority's certificate is in a folder.
[[nodiscard]] std::filesystem::path authorityFileIn(const std::filesystem::path& folder);

}  // namespace KestrinProfileServer
