#include "Events.hpp"

#include <stdexcept>
#include <utility>

namespace KestrinJava {

namespace {

/// What fits into one array, with room for what is released.
constexpr std::size_t most = std::size_t{1} << 30;

void write(std::string& place, std::int64_t id, EventKind kind, const std::string& bytes) {
    Writer head;
    head.number(id);
    head.number(static_cast<std::int8_t>(kind));
    head.count(bytes.size());
    const std::size_t size = place.size() + head.bytes().size() + bytes.size();
    if (size > most) throw std::length_error("more than an array of Java's holds");
    // Both or neither.
    if (size > place.capacity()) place.reserve(2 * size);
    place += head.bytes();
    place += bytes;
}

}  // namespace

Events& Events::instance() {
    static Events* const only = new Events;
    return *only;
}

void Events::append(std::int64_t id, EventKind kind, const std::string& bytes) {
    {
        const std::scoped_lock lock(mutex_);
        write(waiting_, id, kind, bytes);
    }
    changed_.notify_one();
}

void Events::noteLack(Context& context) noexcept {
    const std::scoped_lock lock(mutex_);
    context.lacksMemory = true;
}

void Events::release(Context* context) noexcept {
    {
        const std::scoped_lock lock(mutex_);
        context->next = std::exchange(firstReleased_, context);
    }
    changed_.notify_one();
}

const std::string& Events::next() {
    if (taken_.empty() && releasing_ == nullptr) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !waiting_.empty() || firstReleased_ != nullptr; });
        taken_.swap(waiting_);
        while (firstReleased_ != nullptr) {
            Context* const context = firstReleased_;
            firstReleased_ = std::exchange(context->next, releasing_);
            releasing_ = context;
        }
    }
    takeReleased();
    return taken_;
}

/// Their events come after those of all contexts: each context's own were there before.
void Events::takeReleased() {
    while (releasing_ != nullptr) {
        Writer lack;
        lack.number(releasing_->lacksMemory);
        write(taken_, releasing_->id, EventKind::released, lack.bytes());
        delete std::exchange(releasing_, releasing_->next);
    }
}

void Events::forget() noexcept {
    taken_.clear();
    // What was large once need not stay.
    if (constexpr std::size_t usual = 1 << 20; taken_.capacity() > usual)
        std::string().swap(taken_);
}

}  // namespace KestrinJava
