#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include <KestrinC/kestrin_profile.h>

#include "Wire.hpp"

namespace KestrinJava {

/// What the library tells; the numbers are those of Events.java.
enum class EventKind : std::int8_t {
    released = 0,  ///< the last one of a context
    completed = 1,
    householdEvent = 2,
    outboxEvent = 3,
    reporterFailed = 4,
    bindsToSave = 5,
    send = 6,
    cancel = 7,
};

/// What stands for an object of Java's in the library: its number there.
struct Context {
    std::int64_t id = 0;
    bool lacksMemory = false;  ///< something could not be told
    std::string loadedBinds;   ///< what a bind store begins with, as Java wrote it
    Context* next = nullptr;   ///< of those that were released
};

/// What the library's threads tell and a thread of Java's waits for. So none of the library's
/// threads ever enters Java: none is attached, none holds up the exit of the process, which waits
/// for some of them when Java lets nobody in any more.
class Events {
  public:
    /// Never destroyed: the thread that waits is a daemon, and is there to the end.
    static Events& instance();

    /// Notes an event of a context.
    /// @param write  writes what belongs to the event
    /// @return false if there is no memory for it; the release of the context tells that
    template <class Write>
    bool add(Context& context, EventKind kind, const Write& write) noexcept {
        try {
            Writer writer;
            write(writer);
            append(context.id, kind, writer.bytes());
            return true;
        } catch (...) {
            noteLack(context);
            return false;
        }
    }

    /// Ends a context, after all of its events. Needs no memory.
    void release(Context* context) noexcept;

    /// Waits for events.
    /// @return all that there are, each as its context's number, its kind, its length and its bytes
    /// @throws std::bad_alloc  nothing is lost then
    [[nodiscard]] const std::string& next();

    /// What `next` returned has arrived.
    void forget() noexcept;

  private:
    void append(std::int64_t id, EventKind kind, const std::string& bytes);
    void noteLack(Context& context) noexcept;
    void takeReleased();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::string waiting_;
    Context* firstReleased_ = nullptr;  ///< the latest one

    // Of the thread that waits alone.
    std::string taken_;
    Context* releasing_ = nullptr;  ///< in the order in which they were released
};

}  // namespace KestrinJava
