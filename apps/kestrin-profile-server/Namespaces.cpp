#include <algorithm>
#include <utility>

#include <internal/ASCII.hpp>
#include <kestrin-profile-server/Namespaces.hpp>
#include <kestrin-profile-server/domain/Problem.hpp>
#include <kestrin-profile-server/domain/Text.hpp>

namespace KestrinProfileServer {
namespace {

constexpr std::size_t longestName = 64;

bool isName(std::string_view name) {
    // Who writes a URL with a segment of one or two points takes it away again (RFC 3986, 5.2.4).
    if (name == "." || name == "..") return false;
    return !name.empty() && name.size() <= longestName && std::ranges::all_of(name, [](char each) {
        return KestrinInternal::isDigit(each) || KestrinInternal::isLetter(each) || each == '.' ||
               each == '_' || each == '-';
    });
}

/// Whose data nobody keeps, and whom nobody is blocked in.
NamespaceSettings ofNamed(NamespaceSettings settings) {
    settings.database.clear();
    settings.block.clear();
    settings.unblock.clear();
    return settings;
}

}  // namespace

Namespaces::Namespaces(const NamespaceSettings& settings, std::size_t threads)
    : settings_(ofNamed(settings)), threads_(threads), root_("", settings, threads) {}

std::shared_ptr<Namespace> Namespaces::rootPointer() {
    // It owns nothing, so nobody counts.
    return {std::shared_ptr<void>(), &root_};
}

std::shared_ptr<Namespace> Namespaces::find(std::string_view name) {
    const auto named = named_.lock();
    const auto found = named->find(name);
    return found == named->end() ? nullptr : found->second;
}

void Namespaces::checkFree(const Named& named, const std::string& name) {
    if (named.contains(name))
        throw Problem(ProblemKind::taken, "there is a namespace '" + name + "' already");
    if (named.size() >= most) {
        throw Problem(ProblemKind::tooManyNamespaces, "there are " + std::to_string(most) +
                                                          " namespaces already; delete one first");
    }
}

std::shared_ptr<Namespace> Namespaces::add(const std::string& name,
                                           const std::optional<Seed>& seed) {
    if (!isName(name)) {
        throw Problem(ProblemKind::invalidRequest,
                      "the name is '" + excerptOf(name) +
                          "'; expected are 1 to 64 of A-Z, a-z, 0-9, '.', '_' and '-'");
    }
    checkFree(*named_.lock(), name);
    // Made without the lock: others need not wait for its files.
    NamespaceSettings settings = settings_;
    if (seed) settings.seed = seed;
    auto created = std::make_shared<Namespace>(name, settings, threads_);
    const auto named = named_.lock();
    checkFree(*named, name);
    named->emplace(name, created);
    return created;
}

bool Namespaces::remove(std::string_view name) {
    std::shared_ptr<Namespace> removed;  // ends without the lock
    const auto named = named_.lock();
    const auto found = named->find(name);
    if (found == named->end()) return false;
    removed = std::move(found->second);
    removed->observation().events().stop();
    named->erase(found);
    return true;
}

std::vector<std::string> Namespaces::names() {
    std::vector<std::string> names;
    const auto named = named_.lock();
    for (const auto& each : *named)
        names.push_back(each.first);
    return names;
}

}  // namespace KestrinProfileServer
