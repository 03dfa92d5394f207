#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <HalvardSling/rx/Executor.hpp>
#include <KestrinC/internal/HandleTypes.hpp>
#include <KestrinC/internal/outbox/FileStore.hpp>
#include <KestrinC/internal/records/Defaults.hpp>
#include <KestrinC/internal/records/Records.hpp>
#include <KestrinC/internal/requests/Operations.hpp>
#include <KestrinC/internal/requests/Request.hpp>
#include <KestrinHousehold/outbox/HouseholdDelivery.hpp>
#include <KestrinHousehold/outbox/LaterSession.hpp>
#include <KestrinHousehold/outbox/MemoryOutboxStore.hpp>
#include <internal/Guarded.hpp>

namespace KestrinC::internal {

namespace {

using KestrinHousehold::LaterSession;
using KestrinHousehold::Outbox;
using KestrinHousehold::OutboxEvent;
using KestrinHousehold::OutboxOptions;
using KestrinHousehold::OutboxWrite;

using WatcherHooks = Hooks<kestrin_outbox_watcher>;

/// Somebody who is told of events. The context is released once nobody is being told.
class Watch final : public Cancellable, public std::enable_shared_from_this<Watch> {
  public:
    explicit Watch(WatcherHooks hooks) : hooks_(std::move(hooks)) {}

    void subscribeTo(const HalvardSling::Observable<OutboxEvent>& events) {
        // Ends with the observable, however that does.
        const std::shared_ptr<Watch> ending(this,
                                            [self = shared_from_this()](Watch*) { self->end(); });
        events.subscribe(
            subscription_, [ending](const OutboxEvent& event) { ending->tell(event); },
            [](const std::exception_ptr&) {}, [] {});
    }

    void cancel() noexcept override {
        subscription_.unsubscribe();
        end();
    }

  private:
    struct State {
        int running = 0;
        bool isEnded = false;
    };

    void tell(const OutboxEvent& event) noexcept {
        {
            const auto state = state_.lock();
            if (state->isEnded) return;
            ++state->running;
        }
        try {
            Arena arena;
            kestrin_outbox_event structure{};
            show(event, structure, arena);
            hooks_.functions.event(hooks_.context(), &structure);
        } catch (...) {  // There is no memory for it.
        }
        releaseIf([](State& state) { return --state.running == 0 && state.isEnded; });
    }

    void end() noexcept {
        releaseIf(
            [](State& state) { return !std::exchange(state.isEnded, true) && state.running == 0; });
    }

    template <class Condition>
    void releaseIf(const Condition& condition) noexcept {
        const bool isLast = condition(*state_.lock());
        if (isLast) hooks_.owned.end();
    }

    WatcherHooks hooks_;
    rxcpp::composite_subscription subscription_;
    KestrinInternal::Guarded<State> state_;
};

HalvardSling::Executor executorOf(std::shared_ptr<const kestrin_executor::Hooks> hooks) {
    return [hooks = std::move(hooks)](std::function<void()> function) {
        auto* const task =
            made<kestrin_task>(kestrin_task{std::make_shared<FunctionBody>(std::move(function))});
        hooks->functions.execute(hooks->context(), task);
    };
}

/// The options of an outbox and where it keeps its writes.
struct Opening {
    std::optional<std::string> file;
    OutboxOptions options;
};

const Defaults<kestrin_outbox_options>& defaultOptions() {
    static const Defaults<kestrin_outbox_options> defaults{OutboxOptions()};
    return defaults;
}

Opening openingOf(const kestrin_outbox_options* given) {
    Opening opening;
    if (given == nullptr) return opening;
    const Path path("options");
    const auto structure = sized(given, path, defaultOptions().structure());
    read(structure.file, opening.file, Path(path, "file"));
    readFields(structure, opening.options, path);
    if (opening.options.maxEntries == 0)
        Path(path, "max_entries").refuse("is 0; fill the options by kestrin_outbox_options_init");
    return opening;
}

std::shared_ptr<KestrinHousehold::OutboxStore> storeOf(const Opening& opening) {
    if (opening.file) return fileStore(*opening.file);
    return std::make_shared<KestrinHousehold::MemoryOutboxStore>();
}

/// Begins what an outbox does.
template <class Make>
kestrin_status beginOn(const char* function, kestrin_outbox* outbox,
                       const kestrin_completion* completion, kestrin_request** request,
                       const Make& make) noexcept {
    return begin(function, completion, request,
                 [&](Request& begun) { begun.subscribeTo(make(*inUse(outbox, function).outbox)); });
}

/// Gives what an outbox knows at once.
template <class Make>
kestrin_status giveOf(const char* function, kestrin_outbox* outbox, kestrin_result** result,
                      const Make& make) noexcept {
    return guarded(function, [&] {
        const auto& known = *inUse(outbox, function).outbox;
        requirePlace(result, "result");
        *result = valueResult(make(known));
    });
}

}  // namespace

}  // namespace KestrinC::internal

using namespace KestrinC::internal;

kestrin_status kestrin_outbox_options_init(kestrin_outbox_options* options, size_t size) {
    return guarded("kestrin_outbox_options_init",
                   [&] { defaultOptions().copyTo(options, size, "options"); });
}

kestrin_status kestrin_outbox_create(kestrin_household* household,
                                     const kestrin_outbox_options* options,
                                     kestrin_outbox** outbox) {
    const char* const function = "kestrin_outbox_create";
    return guarded(function, [&] {
        const auto& acting = inUse(household, function).household;
        requirePlace(outbox, "outbox");
        const auto opening = openingOf(options);
        *outbox = made<kestrin_outbox>(kestrin_outbox{std::make_shared<Outbox>(
            storeOf(opening), std::make_shared<KestrinHousehold::HouseholdDelivery>(acting),
            acting.scheduler(), opening.options)});
    });
}

void kestrin_outbox_release(kestrin_outbox* outbox) {
    retired(outbox, "kestrin_outbox_release");
}

kestrin_status kestrin_session_keep(kestrin_session* session, kestrin_outbox* outbox,
                                    const kestrin_call* call, const kestrin_completion* completion,
                                    kestrin_request** request) {
    const char* const function = "kestrin_session_keep";
    return begin(function, completion, request, [&](Request& begun) {
        const auto& acting = inUse(session, function).session;
        const LaterSession later(acting, inUse(outbox, function).outbox);
        start(later, readSessionCall(call), begun);
    });
}

kestrin_status kestrin_outbox_add(kestrin_outbox* outbox, const kestrin_write* write,
                                  const kestrin_completion* completion, kestrin_request** request) {
    return beginOn("kestrin_outbox_add", outbox, completion, request, [&](const Outbox& keeping) {
        return keeping.add(readAs<OutboxWrite>(write, "write"));
    });
}

kestrin_status kestrin_outbox_opening(kestrin_outbox* outbox, const kestrin_completion* completion,
                                      kestrin_request** request) {
    return beginOn("kestrin_outbox_opening", outbox, completion, request,
                   [](const Outbox& opened) { return opened.opening(); });
}

kestrin_status kestrin_outbox_settled(kestrin_outbox* outbox, const kestrin_completion* completion,
                                      kestrin_request** request) {
    return beginOn("kestrin_outbox_settled", outbox, completion, request,
                   [](const Outbox& settling) { return settling.settled(); });
}

kestrin_status kestrin_outbox_drop(kestrin_outbox* outbox, int64_t number,
                                   const kestrin_completion* completion,
                                   kestrin_request** request) {
    return beginOn("kestrin_outbox_drop", outbox, completion, request,
                   [&](const Outbox& keeping) { return keeping.drop(number); });
}

kestrin_status kestrin_outbox_entries(kestrin_outbox* outbox, kestrin_result** result) {
    return giveOf("kestrin_outbox_entries", outbox, result,
                  [](const Outbox& known) { return known.entries(); });
}

kestrin_status kestrin_outbox_refused(kestrin_outbox* outbox, kestrin_result** result) {
    return giveOf("kestrin_outbox_refused", outbox, result,
                  [](const Outbox& known) { return known.refused(); });
}

kestrin_status kestrin_outbox_watch(kestrin_outbox* outbox, const kestrin_outbox_watcher* watcher,
                                    kestrin_request** request) {
    const char* const function = "kestrin_outbox_watch";
    if (request != nullptr) *request = nullptr;
    return guarded(function, [&] {
        auto hooks = WatcherHooks::taken(watcher, "watcher", &kestrin_outbox_watcher::event);
        auto events = inUse(outbox, function).outbox->events();
        if (auto* const executor = hooks.functions.executor)
            events = (events | HalvardSling::deliverOn(executorOf(inUse(executor, function).hooks)))
                         .as_dynamic();
        const auto watch = std::make_shared<Watch>(std::move(hooks));
        if (request != nullptr) *request = made<kestrin_request>(kestrin_request{watch});
        try {
            watch->subscribeTo(events);
        } catch (...) {
            watch->cancel();
            if (request != nullptr) retired(std::exchange(*request, nullptr), function);
            throw;
        }
    });
}

kestrin_status kestrin_outbox_network_is_back(kestrin_outbox* outbox) {
    const char* const function = "kestrin_outbox_network_is_back";
    return guarded(function, [&] { inUse(outbox, function).outbox->networkIsBack(); });
}

kestrin_status kestrin_outbox_bind_is_new(kestrin_outbox* outbox, kestrin_text profile_id) {
    const char* const function = "kestrin_outbox_bind_is_new";
    return guarded(function, [&] {
        inUse(outbox, function).outbox->bindIsNew(readText(profile_id, "profile_id"));
    });
}
