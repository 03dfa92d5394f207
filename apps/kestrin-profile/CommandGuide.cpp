#include "CommandGuide.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace KestrinProfileCLI {

namespace {

/// What a command works with, and so which options of the program mean something to it.
enum class Scope {
    itself,         ///< the program
    configuration,  ///< the configuration file
    outbox,         ///< and what was kept
    sending,        ///< and the service
    household,      ///< and who acts
    lists,          ///< and the brand
};

struct OptionScope {
    std::string_view option;
    Scope from;  ///< it means something from this scope on
};

constexpr std::array optionScopes{
    OptionScope{"--config", Scope::configuration}, OptionScope{"--json", Scope::configuration},
    OptionScope{"--dry-run", Scope::outbox},       OptionScope{"--verbose", Scope::sending},
    OptionScope{"--retry", Scope::sending},        OptionScope{"--no-retry", Scope::sending},
    OptionScope{"--profile", Scope::household},    OptionScope{"--brand", Scope::lists},
};

struct Guide {
    static constexpr std::size_t mostExamples = 3;

    std::string_view path;
    Scope scope;
    std::array<std::string_view, mostExamples> examples;  ///< the last may be empty
};

// clang-format off
constexpr std::array guides{
    Guide{"", Scope::lists,
          {"kestrin-profile doctor",
           "kestrin-profile history list --profile Anna",
           "kestrin-profile help watchlist add"}},
    Guide{"bind", Scope::household,
          {"kestrin-profile bind",
           "kestrin-profile bind Anna --new"}},
    Guide{"unbind", Scope::household,
          {"kestrin-profile unbind Anna",
           "kestrin-profile unbind --all"}},
    Guide{"profiles", Scope::household,
          {"kestrin-profile profiles list",
           "kestrin-profile profiles create Anna --avatar fox --group kids"}},
    Guide{"profiles list", Scope::household,
          {"kestrin-profile profiles list",
           "kestrin-profile profiles list --json --fields profileId,username",
           "kestrin-profile profiles list --watch 5"}},
    Guide{"profiles create", Scope::household,
          {"kestrin-profile profiles create Anna",
           "kestrin-profile profiles create Anna --avatar fox --group kids"}},
    Guide{"profiles edit", Scope::household,
          {"kestrin-profile profiles edit Anna --name 'Anna B'",
           "kestrin-profile profiles edit Anna --default"}},
    Guide{"profiles delete", Scope::household,
          {"kestrin-profile profiles delete Anna",
           "kestrin-profile profiles delete Anna Ben --yes"}},
    Guide{"profiles validate", Scope::lists,
          {"kestrin-profile profiles validate Anna",
           "kestrin-profile profiles validate 'Anna B' --json"}},
    Guide{"history", Scope::lists,
          {"kestrin-profile history list",
           "kestrin-profile history add v1 --progress 12:34"}},
    Guide{"history list", Scope::lists,
          {"kestrin-profile history list --profile Anna",
           "kestrin-profile history list --json --fields id,progress",
           "kestrin-profile history list --watch --utc"}},
    Guide{"history progress", Scope::lists,
          {"kestrin-profile history progress v1",
           "kestrin-profile history progress v1 --json --fields progress"}},
    Guide{"history add", Scope::lists,
          {"kestrin-profile history add v1 --progress 1:02:03",
           "kestrin-profile history add v1 v2 --progress 45:00 --completed",
           "kestrin-profile history add v1 --progress 90 --later"}},
    Guide{"history remove", Scope::lists,
          {"kestrin-profile history remove v1",
           "kestrin-profile history remove --from ids.txt --jobs 8"}},
    Guide{"history clear", Scope::lists,
          {"kestrin-profile history clear",
           "kestrin-profile history clear --profile Anna --yes"}},
    Guide{"favorites", Scope::lists,
          {"kestrin-profile favorites list",
           "kestrin-profile favorites add s1"}},
    Guide{"favorites list", Scope::lists,
          {"kestrin-profile favorites list --profile Anna",
           "kestrin-profile favorites list --json --fields id"}},
    Guide{"favorites add", Scope::lists,
          {"kestrin-profile favorites add s1 s2",
           "kestrin-profile favorites add --from ids.txt --fail-fast"}},
    Guide{"favorites add-many", Scope::lists,
          {"kestrin-profile favorites add-many s1 s2 s3",
           "kestrin-profile favorites add-many --from ids.txt"}},
    Guide{"favorites remove", Scope::lists,
          {"kestrin-profile favorites remove s1",
           "kestrin-profile favorites remove s1 s2 --later"}},
    Guide{"favorites clear", Scope::lists,
          {"kestrin-profile favorites clear",
           "kestrin-profile favorites clear --yes"}},
    Guide{"watchlist", Scope::lists,
          {"kestrin-profile watchlist list",
           "kestrin-profile watchlist add v1"}},
    Guide{"watchlist list", Scope::lists,
          {"kestrin-profile watchlist list --brand kestrin",
           "kestrin-profile watchlist list --fields id,autoAddTimestamp"}},
    Guide{"watchlist add", Scope::lists,
          {"kestrin-profile watchlist add v1 v2",
           "kestrin-profile watchlist add --from ids.txt --jobs 1"}},
    Guide{"watchlist remove", Scope::lists,
          {"kestrin-profile watchlist remove v1",
           "kestrin-profile watchlist remove v1 --later=0"}},
    Guide{"watchlist clear", Scope::lists,
          {"kestrin-profile watchlist clear",
           "kestrin-profile watchlist clear --yes --json"}},
    Guide{"search", Scope::lists,
          {"kestrin-profile search add 'northern lights'",
           "kestrin-profile search delete --yes"}},
    Guide{"search add", Scope::lists,
          {"kestrin-profile search add 'northern lights'",
           "kestrin-profile search add fox owl --later"}},
    Guide{"search delete", Scope::lists,
          {"kestrin-profile search delete",
           "kestrin-profile search delete --brand kestrin --yes"}},
    Guide{"outbox", Scope::sending,
          {"kestrin-profile outbox list",
           "kestrin-profile outbox send --retry"}},
    Guide{"outbox list", Scope::outbox,
          {"kestrin-profile outbox list",
           "kestrin-profile outbox list --json"}},
    Guide{"outbox send", Scope::sending,
          {"kestrin-profile outbox send",
           "kestrin-profile outbox send --retry -v"}},
    Guide{"outbox drop", Scope::outbox,
          {"kestrin-profile outbox drop 3 4",
           "kestrin-profile outbox drop --all --yes"}},
    Guide{"config", Scope::configuration,
          {"kestrin-profile config check",
           "kestrin-profile config show --json"}},
    Guide{"config check", Scope::configuration,
          {"kestrin-profile config check",
           "kestrin-profile config check --config config.json --json"}},
    Guide{"config show", Scope::configuration,
          {"kestrin-profile config show",
           "kestrin-profile config show --json"}},
    Guide{"doctor", Scope::household,
          {"kestrin-profile doctor",
           "kestrin-profile doctor --json --no-retry"}},
    Guide{"api", Scope::lists,
          {"kestrin-profile api",
           "kestrin-profile api personalization-history-get",
           "kestrin-profile api personalization-history-add-video video=v1 progress=90"}},
    Guide{"completion", Scope::itself,
          {"source <(kestrin-profile completion bash)",
           "kestrin-profile completion fish | source"}},
    Guide{"completion bash", Scope::itself,
          {"source <(kestrin-profile completion bash)",
           "kestrin-profile completion bash > kestrin-profile.bash"}},
    Guide{"completion zsh", Scope::itself,
          {"source <(kestrin-profile completion zsh)",
           "kestrin-profile completion zsh > _kestrin-profile"}},
    Guide{"completion fish", Scope::itself,
          {"kestrin-profile completion fish | source",
           "kestrin-profile completion fish > kestrin-profile.fish"}},
    Guide{"man", Scope::itself,
          {"kestrin-profile man | man -l -",
           "kestrin-profile man > kestrin-profile.1"}},
    Guide{"help", Scope::itself,
          {"kestrin-profile help",
           "kestrin-profile help history add"}},
};
// clang-format on

}  // namespace

bool isOfUse(std::string_view path, std::string_view option) {
    const auto from = std::ranges::find(optionScopes, option, &OptionScope::option);
    if (from == optionScopes.end()) return path.empty();  // --version
    const auto guide = std::ranges::find(guides, path, &Guide::path);
    return guide == guides.end() || guide->scope >= from->from;
}

std::span<const std::string_view> examplesFor(std::string_view path) {
    const auto guide = std::ranges::find(guides, path, &Guide::path);
    if (guide == guides.end()) return {};
    const auto& examples = guide->examples;
    return {examples.begin(), std::ranges::find(examples, std::string_view())};
}

}  // namespace KestrinProfileCLI
