#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <internal/Guarded.hpp>
#include <kestrin-profile-server/http/Exchange.hpp>

namespace KestrinProfileServer {

/// Finds what is legal but suspicious in the requests of one namespace. Used by all threads at
/// once.
class StrictChecks {
  public:
    /// What there is to say about a request that was answered.
    /// @param profile  the addressed one; empty if none is known
    [[nodiscard]] std::vector<Finding> findings(const Exchange& exchange,
                                                std::string_view requestBody);

    void clear();

  private:
    /// What a profile did before.
    struct Past {
        std::optional<std::size_t> lastWrite;  ///< a hash of its method, target and body
        Milliseconds lastWriteTime = 0;
        unsigned requestsSinceBind = 0;
        unsigned hastyBinds = 0;  ///< one after the other, each for one request at most
        bool hasBound = false;
    };

    /// How many profiles are remembered; beyond that all are forgotten.
    static constexpr std::size_t mostProfiles = 10'000;

    KestrinInternal::Guarded<std::map<std::string, Past, std::less<>>> past_;
};

}  // namespace KestrinProfileServer
