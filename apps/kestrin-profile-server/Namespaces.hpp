#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <internal/Guarded.hpp>
#include <kestrin-profile-server/Namespace.hpp>

namespace KestrinProfileServer {

/// All namespaces: the one at the root, which is always there, and named ones that come and go.
/// What a named one holds goes with it. Used by all threads at once.
class Namespaces {
  public:
    /// How many there may be beside the one at the root.
    static constexpr std::size_t most = 100;

    /// @param settings  of the one at the root; the named ones have the same, but keep nothing
    /// @param threads   how many threads read
    Namespaces(const NamespaceSettings& settings, std::size_t threads);

    [[nodiscard]] Namespace& root() { return root_; }
    /// The same, for who holds it beside named ones.
    [[nodiscard]] std::shared_ptr<Namespace> rootPointer();

    /// The one of this name; null if there is none.
    [[nodiscard]] std::shared_ptr<Namespace> find(std::string_view name);

    /// A new one. Throws the problem of a name that is no name or taken, and of too many.
    /// @param seed  what it holds; absent: what the one at the root held if it was new
    std::shared_ptr<Namespace> add(const std::string& name, const std::optional<Seed>& seed);

    /// From here on nobody finds it; it ends with the last request that is under way in it.
    /// @return false if there is none
    bool remove(std::string_view name);

    /// In alphabetical order, without the one at the root.
    [[nodiscard]] std::vector<std::string> names();

  private:
    using Named = std::map<std::string, std::shared_ptr<Namespace>, std::less<>>;

    static void checkFree(const Named& named, const std::string& name);

    NamespaceSettings settings_;
    std::size_t threads_;
    Namespace root_;
    KestrinInternal::Guarded<Named> named_;
};

}  // namespace KestrinProfileServer
