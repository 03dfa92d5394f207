#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include <KestrinC/internal/HandleTypes.hpp>
#include <KestrinC/internal/hooks/Hooks.hpp>
#include <KestrinC/internal/records/Records.hpp>
#include <KestrinC/internal/requests/Result.hpp>
#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/playback/PlaybackReporter.hpp>

struct kestrin_reporter {
    kestrin_reporter(KestrinHousehold::PlaybackVideo video, KestrinHousehold::PlaybackSink sink,
                     std::shared_ptr<KestrinHousehold::Scheduler> scheduler,
                     KestrinHousehold::PlaybackOptions options)
        : reporter(std::move(video), std::move(sink), std::move(scheduler), std::move(options)) {}

    KestrinHousehold::PlaybackReporter reporter;
};

namespace KestrinC::internal {

template <>
inline constexpr const char* handleName<kestrin_reporter> = "the reporter";

template <>
struct Fields<kestrin_reporter_options, KestrinHousehold::PlaybackVideo> {
    using C = kestrin_reporter_options;
    using Record = KestrinHousehold::PlaybackVideo;
    static constexpr auto row = std::tuple(
        Field{"profile_id", &C::profile_id, &Record::profileID},
        Field{"brand_id", &C::brand_id, [](auto& video) { return TextOrNone{video.brandID}; }},
        Field{"video_id", &C::video_id, &Record::videoID});
};

namespace {

using KestrinHousehold::PlaybackOptions;
using KestrinHousehold::PlaybackReporter;
using KestrinHousehold::PlaybackSink;
using KestrinHousehold::PlaybackVideo;

using ReporterHooks = Hooks<kestrin_reporter_options>;

void tell(const ReporterHooks& hooks, const std::exception_ptr& error) noexcept {
    try {
        Arena arena;
        kestrin_error structure{};
        show(error, structure, arena);
        hooks.functions.failed(hooks.context(), &structure);
    } catch (...) {  // There is no memory for it.
    }
}

PlaybackOptions optionsOf(std::shared_ptr<const ReporterHooks> hooks) {
    PlaybackOptions options;
    const auto interval = hooks->functions.interval_ms;
    if (interval != 0) read(interval, options.interval, Path("options.interval_ms"));
    // Kept also if nothing is told: the context is the reporter's.
    options.failed = [hooks = std::move(hooks)](const std::exception_ptr& error) {
        if (hooks->functions.failed != nullptr) tell(*hooks, error);
    };
    return options;
}

/// Absent: unknown.
std::optional<std::chrono::nanoseconds> positionOf(std::int64_t milliseconds) {
    std::optional<std::chrono::nanoseconds> position;
    if (milliseconds >= 0) read(milliseconds, position.emplace(), Path("position_ms"));
    return position;
}

template <class Tell>
kestrin_status report(const char* function, kestrin_reporter* reporter, const Tell& tell) noexcept {
    return guarded(function, [&] { tell(inUse(reporter, function).reporter); });
}

}  // namespace

}  // namespace KestrinC::internal

using namespace KestrinC::internal;

kestrin_status kestrin_reporter_create(kestrin_household* household, kestrin_outbox* outbox,
                                       const kestrin_reporter_options* options,
                                       kestrin_reporter** reporter) {
    const char* const function = "kestrin_reporter_create";
    return guarded(function, [&] {
        const auto hooks =
            std::make_shared<const ReporterHooks>(ReporterHooks::taken(options, "options"));
        const auto& acting = inUse(household, function).household;
        requirePlace(reporter, "reporter");
        PlaybackVideo video;
        readFields(hooks->functions, video, Path("options"));
        PlaybackSink sink =
            outbox != nullptr
                ? keepIn(inUse(outbox, function).outbox)
                : sendWith(std::make_shared<KestrinHousehold::HouseholdDelivery>(acting));
        *reporter = made<kestrin_reporter>(std::move(video), std::move(sink), acting.scheduler(),
                                           optionsOf(hooks));
    });
}

void kestrin_reporter_release(kestrin_reporter* reporter) {
    retired(reporter, "kestrin_reporter_release");
}

kestrin_status kestrin_reporter_position(kestrin_reporter* reporter, int64_t position_ms) {
    return report("kestrin_reporter_position", reporter, [&](PlaybackReporter& watching) {
        watching.positionIs(positionOf(position_ms));
    });
}

kestrin_status kestrin_reporter_moved(kestrin_reporter* reporter, int64_t position_ms) {
    return report("kestrin_reporter_moved", reporter,
                  [&](PlaybackReporter& watching) { watching.movedTo(positionOf(position_ms)); });
}

kestrin_status kestrin_reporter_paused(kestrin_reporter* reporter) {
    return report("kestrin_reporter_paused", reporter,
                  [](PlaybackReporter& watching) { watching.paused(); });
}

kestrin_status kestrin_reporter_in_background(kestrin_reporter* reporter) {
    return report("kestrin_reporter_in_background", reporter,
                  [](PlaybackReporter& watching) { watching.inBackground(); });
}

kestrin_status kestrin_reporter_finished(kestrin_reporter* reporter) {
    return report("kestrin_reporter_finished", reporter,
                  [](PlaybackReporter& watching) { watching.finished(); });
}
