#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): mkdtemp
#include <string>

#include <fmt/format.h>

#include <HalvardSling/rx/Future.hpp>
#include <KestrinConfigManager/ConfigurationManager.hpp>
#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/LaterSession.hpp>
#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/outbox/SQLiteOutboxStore.hpp>
#include <KestrinHousehold/playback/PlaybackReporter.hpp>

#include "Scenes.hpp"

namespace HouseholdEvening {

namespace fs = std::filesystem;
using HalvardSling::SlingError;
using HalvardSling::SlingErrorKind;
using KestrinConfigManager::ConfigurationManager;
using KestrinHousehold::Household;
using KestrinHousehold::HouseholdEvent;
using KestrinHousehold::HouseholdOptions;
using KestrinHousehold::LaterSession;
using KestrinHousehold::Outbox;
using KestrinHousehold::OutboxEvent;
using KestrinHousehold::PlaybackReporter;
using KestrinProfile::UserProfile;
using namespace std::chrono_literals;

namespace {

constexpr const char* film = "film-8";
constexpr const char* nextFilm = "film-9";
constexpr auto beforeTunnel = 600s;
constexpr auto afterTunnel = 1260s;

UserProfile historyOf(const Cast& cast) {
    auto list = await(cast.as(cast.anna).history());
    require(list.elements.has_value(), "the reply holds a list");
    return list;
}

std::string overreach(const Stage& stage, const Cast& cast) {
    const auto before = historyOf(cast);
    const auto held = ConfigurationManager::sharedInstance().heldBinds().binds.size();
    const auto asked = stage.sent();
    const auto refusal =
        stage.refusalOf(cast.as(cast.ben).deleteProfile(cast.anna.profileID.value()));
    require(refusal.error.statusCode() == 403, "the service answers 403");
    require(stage.sent() == asked + 3, "it is asked again under a new bind, once");
    require(refusal.reactions == 2, "the reaction is called for each refusal");
    require(ConfigurationManager::sharedInstance().heldBinds().binds.size() == held,
            "every bind is held");
    require(historyOf(cast) == before, "nothing was deleted");
    require(stage.sent() == asked + 4, "Anna's bind is still good");
    return fmt::format("403, {}; again so under a new bind; {} is still there, all binds are held",
                       reasonOf(refusal.error), cast.anna.username.value());
}

/// A new directory, which goes with everything in it.
class OwnDirectory {
  public:
    OwnDirectory() {
        std::string name = fs::temp_directory_path() / "household-evening-XXXXXX";
        require(mkdtemp(name.data()) != nullptr, "the system has room for a temporary directory");
        path_ = name;
    }
    OwnDirectory(const OwnDirectory&) = delete;
    OwnDirectory& operator=(const OwnDirectory&) = delete;
    ~OwnDirectory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }

    [[nodiscard]] const fs::path& path() const noexcept { return path_; }

  private:
    fs::path path_;
};

/// Something that comes once, from any thread.
class Signal {
  public:
    void give() {
        if (!isGiven_.exchange(true)) promise_.set_value();
    }
    void wait() { promise_.get_future().wait(); }

  private:
    std::atomic<bool> isGiven_ = false;
    std::promise<void> promise_;
};

/// What Anna takes along: a device that keeps what it cannot send, and asks for long.
class Tablet {
  public:
    explicit Tablet(const Cast& cast)
        : household_(options()),
          session_(household_.session(cast.anna.profileID.value())),
          outbox_(std::make_shared<Outbox>(
              std::make_shared<KestrinHousehold::SQLiteOutboxStore>(directory_.path() / "outbox"),
              std::make_shared<KestrinHousehold::HouseholdDelivery>(household_),
              household_.scheduler())),
          player_({session_.profileID(), brand(), film}, KestrinHousehold::keepIn(outbox_),
                  household_.scheduler(), rarely()) {}
    Tablet(const Tablet&) = delete;
    Tablet& operator=(const Tablet&) = delete;
    ~Tablet() = default;

    [[nodiscard]] const ProfileSession& session() const noexcept { return session_; }
    [[nodiscard]] Outbox& outbox() const noexcept { return *outbox_; }
    [[nodiscard]] LaterSession later() const { return {session_, outbox_}; }

    /// Waits until a request of its own was repeated.
    void awaitRepeat() { repeated_->wait(); }

    /// The player: tells each second up to a pause.
    void watch(std::chrono::seconds from, std::chrono::seconds until) {
        for (auto position = from; position <= until; ++position)
            player_.positionIs(position);
        player_.paused();
    }

  private:
    [[nodiscard]] HouseholdOptions options() const {
        constexpr int often = 10'000;
        HouseholdOptions options;
        options.retry.maxAttempts = often;
        options.retry.longestDelay = 1s;
        options.retry.deadline = 10min;
        options.retry.budget = {0.1, often, often};
        options.log = [repeated = repeated_](const HouseholdEvent& event) {
            if (event.kind == HouseholdEvent::Kind::repeat) repeated->give();
        };
        return options;
    }

    static std::string brand() {
        const auto configuration = ConfigurationManager::sharedInstance().currentConfiguration();
        return configuration->brand ? configuration->brand->rawValue : std::string();
    }

    /// An evening takes no hour, so a position is written when the film is paused.
    static KestrinHousehold::PlaybackOptions rarely() {
        KestrinHousehold::PlaybackOptions options;
        options.interval = 1h;
        return options;
    }

    std::shared_ptr<Signal> repeated_ = std::make_shared<Signal>();
    OwnDirectory directory_;
    Household household_;
    ProfileSession session_;
    std::shared_ptr<Outbox> outbox_;
    PlaybackReporter player_;
};

/// The progress of the film, as the service knows it.
std::optional<std::int64_t> progressOfFilm(const Cast& cast) {
    const auto found = await(cast.as(cast.anna).videoHistory(film)).elements.value();
    return found.empty() ? std::nullopt : found.front().progress;
}

std::string loseService(const Cast& cast, Tablet& tablet, ServiceProcess& service) {
    tablet.watch(0s, beforeTunnel);
    require(await(tablet.outbox().settled()).waiting == 0, "what was watched arrives");
    require(progressOfFilm(cast) == beforeTunnel.count(), "the service knows the last position");

    const auto ended = service.id();
    service.kill();
    tablet.watch(beforeTunnel, afterTunnel);
    await(tablet.later().addWatchListVideo(nextFilm));
    const auto waiting = await(tablet.outbox().settled()).waiting;
    require(waiting == 2, "the last position and the film for tomorrow wait, and nothing else");
    const auto error = errorOf<SlingError>(tablet.session().withoutRepeats().watchList());
    require(error.kind() == SlingErrorKind::cannotConnect, "it fails with cannotConnect");
    return fmt::format(
        "process {} ended; {} goes on to {} s, of which 1 position waits, and {} "
        "for the watch list; a list: {}; what to do: {}",
        ended, film, afterTunnel.count(), nextFilm, error.what(), error.advice());
}

std::string findService(const Cast& cast, Tablet& tablet, ServiceProcess& service) {
    const auto binds = ConfigurationManager::sharedInstance().heldBinds().binds;
    const auto sent = std::make_shared<std::atomic<int>>(0);
    const auto ended = std::make_shared<std::atomic<int>>(0);
    const auto bothEnded = std::make_shared<Signal>();
    tablet.outbox().events().subscribe([=](const OutboxEvent& event) {
        using Kind = OutboxEvent::Kind;
        if (event.kind == Kind::delayed || event.kind == Kind::waitsForBind) return;
        if (event.kind == Kind::sent) ++*sent;
        if (++*ended == 2) bothEnded->give();
    });
    auto asked = HalvardSling::toFuture(tablet.session().favorites());
    tablet.awaitRepeat();

    service.restart();
    tablet.outbox().networkIsBack();
    bothEnded->wait();
    require(*sent == 2, "the service takes everything");
    const auto history = historyOf(cast);
    require(!history.elements->empty() && history.elements->front().id == film &&
                history.elements->front().progress == afterTunnel.count(),
            "the film is in front, at the last position");
    const auto tomorrow = await(cast.as(cast.anna).watchList()).elements.value();
    require(!tomorrow.empty() && tomorrow.front().id == nextFilm, "the other is on the watch list");
    require(asked.get().elements.has_value(), "the list that was asked for meanwhile comes");
    require(ConfigurationManager::sharedInstance().heldBinds().binds == binds,
            "the binds are still good");
    return fmt::format(
        "{} entries sent; {} is in front of the history, {} on the watch list; the "
        "list that was asked for meanwhile came; the binds are still good",
        sent->load(), film, nextFilm);
}

}  // namespace

void playTrouble(Stage& stage, const Cast& cast, ServiceProcess* service) {
    Stage::scene("Trouble");
    stage.step(fmt::format("{} tries to delete {}", *cast.ben.username, *cast.anna.username),
               [&] { return overreach(stage, cast); });
    if (service == nullptr) return;
    Tablet tablet(cast);
    stage.step("the service is taken away while Anna watches",
               [&] { return loseService(cast, tablet, *service); });
    stage.step("the service is back, and everything arrives",
               [&] { return findService(cast, tablet, *service); });
}

}  // namespace HouseholdEvening
