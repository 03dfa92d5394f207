#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <HalvardSling/rx/Observable.hpp>
#include <KestrinConfigManager/FileBindStore.hpp>

#include "DryRun.hpp"
#include "Interruption.hpp"
#include "Terminal.hpp"
#include "WaitFor.hpp"

namespace KestrinProfileCLI {

/// The options that every command takes.
struct Options {
    std::filesystem::path configurationFile;  ///< --config; empty: the default one
    bool json = false;                        ///< --json: results for programs
    bool verbose = false;                     ///< -v: each request and reply on standard error
    bool dryRun = false;                      ///< --dry-run: requests are shown, not sent
    std::optional<std::string> profile;       ///< --profile: the acting profile; absent: the parent
    std::optional<std::string> brand;         ///< --brand; absent: the configured one
};

/// What a command works with: the options, the terminal, the configured library.
class Session {
  public:
    /// @param interruption  outlives the session
    explicit Session(Interruption& interruption) : interruption_(interruption) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    /// Ends the transport, so that no event comes after, and keeps the binds.
    ~Session();

    Options options;
    Terminal terminal;

    /// The configuration file in use.
    [[nodiscard]] std::filesystem::path configurationFile() const;

    /// Loads the configuration, the binds kept for it, and the transport with its log.
    /// In a dry run there are no kept binds, and nothing is sent.
    /// @throws CommandError if the configuration has problems
    void configure();

    /// Waits for a result; see `KestrinProfileCLI::waitFor`.
    /// @throws OnlyShown in a dry run, after the request was shown
    template <class T>
    [[nodiscard]] T waitFor(const HalvardSling::Observable<T>& source) {
        try {
            return KestrinProfileCLI::waitFor(interruption_, source);
        } catch (...) {
            if (options.dryRun && wasOnlyShown(std::current_exception())) throw OnlyShown();
            throw;
        }
    }

    /// The signals that came.
    [[nodiscard]] Interruption& interruption() const noexcept { return interruption_; }

    /// Waits until the binds are on the disk; warns if they cannot be saved.
    void saveBinds();

  private:
    void loadBinds(const std::filesystem::path& file);
    [[nodiscard]] std::shared_ptr<HalvardSling::Transport> newTransport() const;

    Interruption& interruption_;
    std::shared_ptr<KestrinConfigManager::FileBindStore> store_;
};

}  // namespace KestrinProfileCLI
