#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/json/object.hpp>

#include <internal/Guarded.hpp>
#include <kestrin-profile-server/admin/TextBlocks.hpp>
#include <kestrin-profile-server/http/Exchange.hpp>
#include <kestrin-profile-server/http/Reply.hpp>

namespace KestrinProfileServer {

/// A request and its reply in the journal. Copies share what they hold.
struct JournalEntry {
    std::int64_t id = 0;
    std::shared_ptr<const Exchange> exchange;
    KeptText requestBody;  ///< nothing is kept if there was none, or it had to make room
    KeptText replyBody;
};

/// Which entries are meant: those for which everything holds that is given.
struct JournalFilter {
    std::optional<std::string> operation;
    std::optional<std::string> profile;
    std::optional<std::string> household;
    std::optional<std::string> item;
    std::optional<std::string> method;
    std::optional<std::string> path;
    std::optional<std::string> status;        ///< "204", or "4xx"
    std::optional<std::string> problem;       ///< with or without the beginning of its type
    std::optional<std::string> bodyContains;  ///< the request's or the reply's, as they are shown
    std::int64_t since = 0;                   ///< entries after this one
};

/// Takes one member of a filter as text, wherever it comes from.
/// @return whether filters have a member of this name
/// @throws Problem if the value cannot be one
bool setInFilter(JournalFilter& filter, std::string_view name, const std::string& value);

/// The names of all members of a filter.
[[nodiscard]] std::vector<std::string_view> filterMembers();

[[nodiscard]] bool matches(const JournalFilter& filter, const JournalEntry& entry);

class Journal;

/// What the journals of all namespaces may hold together. When they hold more, the one that holds
/// most makes room. Used by all threads at once.
class JournalMemory {
  public:
    explicit JournalMemory(std::size_t bytes = std::size_t{100'000'000}) : limit_(bytes) {}

  private:
    friend class Journal;

    void add(Journal& journal);
    void remove(Journal& journal);
    /// A journal holds another number of bytes than before.
    void change(std::size_t before, std::size_t now) { used_ += now - before; }
    void makeRoom();

    const std::size_t limit_;
    std::atomic<std::size_t> used_ = 0;
    KestrinInternal::Guarded<std::vector<Journal*>> journals_;
};

/// The requests of one namespace and their replies: bounded, the oldest go first. When the memory
/// is used up, the oldest bodies make room before whole entries do. Used by all threads at once.
class Journal {
  public:
    struct Limits {
        std::size_t entries = 100'000;
        std::size_t bodyBytes = std::size_t{64} * 1024;  ///< what is kept of one body
    };
    /// Everything that is there, oldest first.
    using Entries = std::vector<JournalEntry>;
    struct Counts {
        std::size_t entries = 0;
        std::uint64_t dropped = 0;
        std::size_t bytes = 0;
        std::size_t waiting = 0;  ///< how many wait for entries
    };

    explicit Journal(std::shared_ptr<JournalMemory> memory)
        : Journal(std::move(memory), Limits{}) {}
    Journal(std::shared_ptr<JournalMemory> memory, Limits limits);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    /// Takes a request and its reply. JSON is made of it when somebody asks.
    JournalEntry record(Exchange exchange, std::string_view requestBody,
                        std::string_view replyBody);

    [[nodiscard]] Entries entries() const;
    [[nodiscard]] std::optional<JournalEntry> entry(std::int64_t id) const;
    [[nodiscard]] Counts counts() const;
    /// Forgets all entries; numbers go on. Who waits goes on waiting for what comes.
    void clear();

    /// Somebody who waits for entries.
    class Wait {
      public:
        explicit Wait(Journal& journal) : journal_(journal) {}
        /// Ends the waiting, if it has not ended.
        void expire() { finish(); }

      private:
        friend class Journal;
        /// Takes whether there were enough, and how many there were.
        using Done = std::function<void(bool, std::size_t)>;

        void add(std::size_t count);
        void finish();

        Journal& journal_;
        std::atomic<bool> hasFinished_ = false;
        JournalFilter filter_;
        std::size_t wanted_ = 0;
        struct State {
            std::size_t count = 0;
            Done done;
        };
        KestrinInternal::Guarded<State> state_;
    };

    /// Calls `done` once: when so many entries match, those that are there included, or when the
    /// waiting expires. On the thread that calls this, records, or lets it expire.
    /// @return the waiting, which is forgotten once it has ended
    [[nodiscard]] std::weak_ptr<Wait> wait(JournalFilter filter, std::size_t count,
                                           std::function<void(bool, std::size_t)> done);

  private:
    struct State {
        std::deque<JournalEntry> entries;
        std::int64_t lastID = 0;
        std::size_t bytes = 0;
        std::size_t bodiless = 0;  ///< how many of the oldest have lost their bodies
        std::uint64_t dropped = 0;
        std::vector<std::shared_ptr<Wait>> waits;
        TextBlocks bodies;
    };
    using Removed = std::vector<JournalEntry>;
    friend class JournalMemory;

    static void removeOldestBodies(State& state, Removed& removed);
    static void removeOldest(State& state, Removed& removed);
    /// Forgets those who have ended to wait.
    void forgetFinished();
    /// Lets so many bytes go, or all.
    void shrink(std::size_t bytes);

    std::shared_ptr<JournalMemory> memory_;
    Limits limits_;
    mutable KestrinInternal::Guarded<State> state_;
};

/// An entry as lists and events show it.
[[nodiscard]] boost::json::object summaryJSON(const JournalEntry& entry);

/// An entry with its request and reply.
[[nodiscard]] boost::json::object entryJSON(const JournalEntry& entry);

/// How often something has to have come.
struct JournalExpectation {
    enum class Bound { exactly, atLeast, atMost };
    Bound bound = Bound::exactly;
    std::size_t count = 0;
};

/// Whether so many entries match; if there are too few, with the entries that come nearest and
/// what is different about them.
[[nodiscard]] boost::json::object verified(const Journal::Entries& entries,
                                           const JournalFilter& filter,
                                           const JournalExpectation& expectation);

/// The entries as an HTTP Archive (HAR 1.2, http://www.softwareishard.com/blog/har-12-spec/), piece
/// by piece, because all of it would take more memory than the journal.
/// @param baseURL  of the namespace
[[nodiscard]] Reply::Pieces archivePieces(Journal::Entries entries, std::string baseURL);

}  // namespace KestrinProfileServer
