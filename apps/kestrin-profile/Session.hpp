#pragma once

#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <HalvardSling/rx/Observable.hpp>
#include <KestrinConfigManager/Configuration.hpp>
#include <KestrinConfigManager/FileBindStore.hpp>
#include <KestrinHousehold/session/Household.hpp>

#include "DryRun.hpp"
#include "ExitCode.hpp"
#include "Interruption.hpp"
#include "Recording.hpp"
#include "Terminal.hpp"

namespace KestrinProfileCLI {

/// Which requests are sent again.
enum class Repeats {
    usual,  ///< as an application does it, in a shorter time
    many,   ///< --retry: for a minute, however many it takes
    never,  ///< --no-retry
};

/// The options that every command takes.
struct Options {
    std::filesystem::path configurationFile;  ///< --config; empty: the default one
    bool json = false;                        ///< --json: results for programs
    bool verbose = false;                     ///< -v: each request and reply on standard error
    bool dryRun = false;                      ///< --dry-run: requests are shown, not sent
    Repeats repeats = Repeats::usual;         ///< --retry, --no-retry
    std::optional<std::string> profile;       ///< --profile: the acting profile; absent: the parent
    std::optional<std::string> brand;         ///< --brand; absent: the configured one
};

/// What a command works with: the options, the terminal, the configured library.
class Session {
  public:
    /// How long --retry goes on.
    static constexpr std::chrono::seconds patience{60};

    /// @param interruption  outlives the session
    /// @param results       see `Terminal`
    /// @param messages      see `Terminal`
    explicit Session(Interruption& interruption, std::FILE* results = stdout,
                     std::FILE* messages = stderr)
        : terminal(results, messages), interruption_(interruption) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    /// Ends household and transport, so that no event comes after, and keeps the binds.
    ~Session();

    Options options;
    Terminal terminal;

    /// Prints a failure: for people, or as a document with --json.
    void report(const Failure& failure) const;

    /// From now on, keeps what is sent and what is answered. Called before `configure`; in a dry
    /// run nothing is sent.
    /// @return what is kept
    [[nodiscard]] std::shared_ptr<Recording> record();

    /// The configuration file in use.
    [[nodiscard]] std::filesystem::path configurationFile() const;

    /// Loads the configuration, the binds kept for it, and the transport with its log.
    /// In a dry run there are no kept binds, and nothing is sent.
    /// @throws CommandError if the configuration has problems
    void configure();

    /// Sets up the transport with its log, for what needs neither configuration nor bind.
    void connect() const;

    /// The household that the configuration names, made with its first use.
    [[nodiscard]] const KestrinHousehold::Household& household();

    /// A profile of the household. In a dry run it has a bind, whose token stands for one that is
    /// not known.
    [[nodiscard]] KestrinHousehold::ProfileSession profile(const std::string& profileID);

    /// Subscribes, and waits for the one value.
    /// @return the value
    /// @throws the sequence's error; `OnlyShown` in a dry run, after the request was shown;
    ///         `CommandError::interrupted` if a signal came first, after unsubscribing;
    ///         `std::logic_error` on a transport's thread
    template <class T>
    [[nodiscard]] T waitFor(const HalvardSling::Observable<T>& source);

    /// The signals that came.
    [[nodiscard]] Interruption& interruption() const noexcept { return interruption_; }

  private:
    void hideSecrets(const KestrinConfigManager::Configuration& configuration);
    /// @param file  relative to the state directory
    void loadBinds(const std::filesystem::path& file);
    [[nodiscard]] std::shared_ptr<HalvardSling::Transport> newTransport() const;
    [[nodiscard]] KestrinHousehold::HouseholdOptions householdOptions() const;
    /// Waits until the binds are on the disk; warns if they cannot be saved.
    void saveBinds();

    Interruption& interruption_;
    std::shared_ptr<KestrinConfigManager::FileBindStore> store_;
    std::shared_ptr<Recording> recording_;
    std::optional<KestrinHousehold::Household> household_;
};

template <class T>
T Session::waitFor(const HalvardSling::Observable<T>& source) {
    struct Arrival {
        std::optional<T> value;
        std::exception_ptr error;
        bool ended = false;
    };
    // Shared: after an interruption an event may still be on its way when this function has left.
    const auto arrival = std::make_shared<Arrival>();
    const rxcpp::composite_subscription subscription;
    source.subscribe(
        subscription,
        [&interruption = interruption_, arrival](T value) {
            interruption.notify([&] { arrival->value = std::move(value); });
        },
        [&interruption = interruption_, arrival](const std::exception_ptr& error) {
            interruption.notify([&] {
                arrival->error = error;
                arrival->ended = true;
            });
        },
        [&interruption = interruption_, arrival] {
            interruption.notify([&] { arrival->ended = true; });
        });

    if (!interruption_.wait([&] { return arrival->ended; })) {
        subscription.unsubscribe();
        throw CommandError::interrupted();
    }
    if (options.dryRun && arrival->error && wasOnlyShown(arrival->error)) throw OnlyShown();
    if (arrival->error) std::rethrow_exception(arrival->error);
    std::optional<T>& value = arrival->value;
    if (!value) throw std::logic_error("the request ended without a value");
    return *std::move(value);
}

}  // namespace KestrinProfileCLI
