#pragma once

#include <string>

#include "support/Program.hpp"

namespace TestSupport {

/// A self-signed certificate and its key, as PEM files. Whoever trusts the certificate file trusts
/// a server that shows it.
class Certificate {
  public:
    /// @param hostName  the one DNS name it is for
    explicit Certificate(const std::string& hostName = "localhost");

    [[nodiscard]] std::string certificateFile() const;
    [[nodiscard]] std::string keyFile() const;

  private:
    TemporaryDirectory directory_;
};

}  // namespace TestSupport
