#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <HalvardSling/Observable.hpp>
#include <KestrinConfigManager/FileBindStore.hpp>

#include "Await.hpp"
#include "Interruption.hpp"
#include "Terminal.hpp"

namespace KestrinProfileCLI {

/// The options that every command takes.
struct Options {
    std::filesystem::path configurationFile;  ///< --config; empty: the default place
    bool json = false;                        ///< --json: results for programs
    bool verbose = false;                     ///< -v: each request and reply on standard error
};

/// What a command works with: the options, the terminal, the configured library.
class Session {
  public:
    /// @param interruption  outlives the session
    explicit Session(Interruption& interruption) : interruption_(interruption) {}
    Session(const Session&) = delete;
    Session(Session&&) = delete;
    Session& operator=(const Session&) = delete;
    Session& operator=(Session&&) = delete;
    /// Ends the transport, so that no event comes after.
    ~Session();

    Options options;
    Terminal terminal;

    /// The configuration file in use.
    [[nodiscard]] std::filesystem::path configurationFile() const;

    /// Loads the configuration, the binds kept for it, and the transport with its log.
    /// @throws CommandError where the configuration has problems
    void configure();

    /// Waits for a result; see `KestrinProfileCLI::await`.
    template <class T>
    [[nodiscard]] T await(const HalvardSling::Observable<T>& source) {
        return KestrinProfileCLI::await(interruption_, source);
    }

    /// Waits until the binds are on the disk; says so where they cannot be kept.
    void keepBinds();

  private:
    Interruption& interruption_;
    std::shared_ptr<KestrinConfigManager::FileBindStore> store_;
};

}  // namespace KestrinProfileCLI
