#include <utility>

#include <KestrinHousehold/outbox/Outbox.hpp>
#include <KestrinHousehold/outbox/internal/OutboxCore.hpp>

namespace KestrinHousehold {

using HalvardSling::Observable;
using internal::OutboxCore;

Outbox::Outbox(std::shared_ptr<OutboxStore> store, std::shared_ptr<OutboxDelivery> delivery,
               std::shared_ptr<Scheduler> scheduler, OutboxOptions options)
    : core_(std::make_shared<OutboxCore>(std::move(store), std::move(delivery),
                                         std::move(scheduler), std::move(options))) {
    core_->logEvents();
    core_->requestWork();
}

Outbox::~Outbox() {
    core_->close();
}

namespace {

/// An observable that asks the core of an outbox, unless that was destroyed.
template <class T, class Ask>
Observable<T> asking(const std::shared_ptr<OutboxCore>& core, Ask ask) {
    return rxcpp::observable<>::create<T>([weak = std::weak_ptr<OutboxCore>(core),
                                           ask = std::move(ask)](
                                              const rxcpp::subscriber<T>& subscriber) {
        if (const auto open = weak.lock())
            ask(*open, subscriber);
        else
            subscriber.on_error(std::make_exception_ptr(OutboxError(OutboxError::Case::closed)));
    });
}

}  // namespace

Observable<OutboxOpening> Outbox::opening() const {
    return asking<OutboxOpening>(
        core_, [](OutboxCore& core, const auto& subscriber) { core.tellOpening(subscriber); });
}

Observable<OutboxEntry> Outbox::add(OutboxWrite write) const {
    return asking<OutboxEntry>(
        core_, [write = std::move(write)](OutboxCore& core, const auto& subscriber) {
            core.add(write, subscriber);
        });
}

Observable<bool> Outbox::drop(std::int64_t number) const {
    return asking<bool>(core_, [number](OutboxCore& core, const auto& subscriber) {
        core.drop(number, subscriber);
    });
}

Observable<OutboxState> Outbox::settled() const {
    return asking<OutboxState>(
        core_, [](OutboxCore& core, const auto& subscriber) { core.tellSettled(subscriber); });
}

Observable<OutboxEvent> Outbox::events() const {
    return core_->events();
}

std::vector<OutboxEntry> Outbox::entries() const {
    return core_->entries();
}

std::vector<OutboxEntry> Outbox::refused() const {
    return core_->refused();
}

void Outbox::networkIsBack() {
    const auto core = core_;  // a handler may end the outbox
    core->networkIsBack();
}

void Outbox::bindIsNew(const std::string& profileID) {
    const auto core = core_;  // as above
    core->bindIsNew(profileID);
}

}  // namespace KestrinHousehold
