#pragma once

#include <filesystem>
#include <string>

namespace TestSupport {

/// A folder of its own that is removed with what is in it.
class TemporaryFolder {
  public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder(TemporaryFolder&&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(TemporaryFolder&&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

  private:
    std::filesystem::path path_;
};

/// A self-signed certificate and its key, as PEM files. Whoever trusts the certificate file trusts
/// a server that shows it.
class Certificate {
  public:
    /// @param hostName  the one DNS name it is for
    explicit Certificate(const std::string& hostName = "localhost");

    [[nodiscard]] std::string certificateFile() const;
    [[nodiscard]] std::string keyFile() const;

  private:
    TemporaryFolder folder_;
};

}  // namespace TestSupport
