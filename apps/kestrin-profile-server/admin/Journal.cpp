#include <algorithm>
#include <utility>

#include <kestrin-profile-server/admin/Journal.hpp>

namespace KestrinProfileServer {
namespace {

std::size_t bodyBytesOf(const JournalEntry& entry) {
    return entry.requestBody.text().size() + entry.replyBody.text().size();
}

/// What an entry takes without its bodies.
std::size_t headBytesOf(const JournalEntry& entry) {
    const Exchange& exchange = *entry.exchange;
    std::size_t bytes = sizeof(JournalEntry) + sizeof(Exchange) + exchange.requestID.size() +
                        exchange.target.size() + exchange.requestHeaders.bytes() +
                        exchange.replyHeaders.bytes();
    for (const Finding& finding : exchange.findings)
        bytes += sizeof(Finding) + finding.detail.size();
    return bytes;
}

}  // namespace

void JournalMemory::add(Journal& journal) {
    journals_.lock()->push_back(&journal);
}

void JournalMemory::remove(Journal& journal) {
    std::erase(*journals_.lock(), &journal);
}

void JournalMemory::makeRoom() {
    if (used_ <= limit_) return;
    const auto journals = journals_.lock();
    const auto bytesOf = [](const Journal* journal) { return journal->counts().bytes; };
    for (std::size_t used = used_; used > limit_; used = used_) {
        const auto largest = std::ranges::max_element(*journals, {}, bytesOf);
        if (largest == journals->end() || bytesOf(*largest) == 0) return;
        (*largest)->shrink(used - limit_);
    }
}

Journal::Journal(std::shared_ptr<JournalMemory> memory, Limits limits)
    : memory_(std::move(memory)), limits_(limits) {
    memory_->add(*this);
}

Journal::~Journal() {
    memory_->remove(*this);
    memory_->change(state_.lock()->bytes, 0);
}

void Journal::removeOldestBodies(State& state, Removed& removed) {
    JournalEntry& oldest = state.entries[state.bodiless++];
    state.bytes -= bodyBytesOf(oldest);
    removed.push_back(
        {0, nullptr, std::exchange(oldest.requestBody, {}), std::exchange(oldest.replyBody, {})});
}

void Journal::removeOldest(State& state, Removed& removed) {
    JournalEntry& oldest = state.entries.front();
    state.bytes -= headBytesOf(oldest) + bodyBytesOf(oldest);
    removed.push_back(std::move(oldest));
    state.entries.pop_front();
    if (state.bodiless > 0) --state.bodiless;
    ++state.dropped;
}

void Journal::shrink(std::size_t bytes) {
    Removed removed;  // goes when others have the lock again
    auto state = state_.lock();
    const std::size_t before = state->bytes;
    const auto isEnough = [&] { return before - state->bytes >= bytes; };
    while (!isEnough() && state->bodiless < state->entries.size())
        removeOldestBodies(*state, removed);
    while (!isEnough() && !state->entries.empty())
        removeOldest(*state, removed);
    memory_->change(before, state->bytes);
    state.unlock();
}

JournalEntry Journal::record(Exchange exchange, std::string_view requestBody,
                             std::string_view replyBody) {
    exchange.requestBytes = requestBody.size();
    exchange.replyBytes = replyBody.size();
    JournalEntry entry{
        .exchange = std::make_shared<const Exchange>(std::move(exchange)),
        .requestBody = {},
        .replyBody = {},
    };
    const std::size_t headBytes = headBytesOf(entry);
    Removed removed;  // goes when others have the lock again
    std::vector<std::shared_ptr<Wait>> waits;
    {
        auto state = state_.lock();
        const std::size_t before = state->bytes;
        entry.id = ++state->lastID;
        entry.requestBody = state->bodies.keep(requestBody.substr(0, limits_.bodyBytes));
        entry.replyBody = state->bodies.keep(replyBody.substr(0, limits_.bodyBytes));
        state->entries.push_back(entry);
        state->bytes += headBytes + bodyBytesOf(entry);
        while (state->entries.size() > limits_.entries)
            removeOldest(*state, removed);
        memory_->change(before, state->bytes);
        waits = state->waits;
    }
    memory_->makeRoom();
    for (const auto& wait : waits)
        if (matches(wait->filter_, entry)) wait->add(1);
    return entry;
}

void Journal::forgetFinished() {
    std::erase_if(state_.lock()->waits, [](const auto& each) { return each->hasFinished_.load(); });
}

Journal::Entries Journal::entries() const {
    const auto state = state_.lock();
    return {state->entries.begin(), state->entries.end()};
}

std::optional<JournalEntry> Journal::entry(std::int64_t id) const {
    const auto state = state_.lock();
    const auto found = std::ranges::lower_bound(state->entries, id, {}, &JournalEntry::id);
    if (found == state->entries.end() || found->id != id) return std::nullopt;
    return *found;
}

Journal::Counts Journal::counts() const {
    const auto state = state_.lock();
    return {state->entries.size(), state->dropped, state->bytes, state->waits.size()};
}

void Journal::clear() {
    std::deque<JournalEntry> removed;
    auto state = state_.lock();
    removed.swap(state->entries);
    memory_->change(state->bytes, 0);
    state->bytes = 0;
    state->bodiless = 0;
    state->dropped = 0;
    state.unlock();
}

std::weak_ptr<Journal::Wait> Journal::wait(JournalFilter filter, std::size_t count,
                                           std::function<void(bool, std::size_t)> done) {
    const auto wait = std::make_shared<Wait>(*this);
    wait->filter_ = std::move(filter);
    wait->wanted_ = count;
    wait->state_.lock()->done = std::move(done);
    Entries present;
    {
        auto state = state_.lock();
        present.assign(state->entries.begin(), state->entries.end());
        state->waits.push_back(wait);
    }
    wait->add(static_cast<std::size_t>(std::ranges::count_if(
        present, [&](const JournalEntry& entry) { return matches(wait->filter_, entry); })));
    return wait;
}

void Journal::Wait::add(std::size_t count) {
    auto state = state_.lock();
    state->count += count;
    const bool isEnough = state->count >= wanted_;
    state.unlock();
    if (isEnough) finish();
}

void Journal::Wait::finish() {
    auto state = state_.lock();
    const Done done = std::exchange(state->done, nullptr);
    const std::size_t count = state->count;
    state.unlock();
    if (!done) return;
    hasFinished_ = true;
    journal_.forgetFinished();
    done(count >= wanted_, count);
}

}  // namespace KestrinProfileServer
