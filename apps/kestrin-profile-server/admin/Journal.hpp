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
#include <vector>

#include <boost/json/object.hpp>

#include <internal/Guarded.hpp>
#include <kestrin-profile-server/http/Exchange.hpp>

namespace KestrinProfileServer {

/// A request and its reply in the journal. Copies share what they hold.
struct JournalEntry {
    std::int64_t id = 0;
    std::shared_ptr<const Exchange> exchange;
    SharedBody requestBody;  ///< null: there was none, or it had to make room
    SharedBody replyBody;
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

/// The requests of one namespace and their replies: bounded, the oldest go first. When the memory
/// is used up, the oldest bodies make room before whole entries do. Used by all threads at once.
class Journal {
  public:
    struct Limits {
        std::size_t entries = 100'000;
        std::size_t bytes = 100'000'000;
        std::size_t bodyBytes = std::size_t{64} * 1024;  ///< what is kept of one body
    };
    /// Everything that is there, oldest first.
    using Entries = std::vector<JournalEntry>;
    struct Counts {
        std::size_t entries = 0;
        std::uint64_t dropped = 0;
        std::size_t bytes = 0;
    };

    Journal() = default;
    explicit Journal(Limits limits) : limits_(limits) {}

    /// Takes a request and its reply. JSON is made of it when somebody asks.
    JournalEntry record(Exchange exchange, std::string requestBody, SharedBody replyBody);

    [[nodiscard]] Entries entries() const;
    [[nodiscard]] std::optional<JournalEntry> entry(std::int64_t id) const;
    [[nodiscard]] Counts counts() const;
    /// Forgets all entries; numbers go on. Who waits goes on waiting for what comes.
    void clear();

    /// Somebody who waits for entries.
    class Wait {
      public:
        /// Ends the waiting, if it has not ended.
        void expire() { finish(); }

      private:
        friend class Journal;
        /// Takes whether there were enough, and how many there were.
        using Done = std::function<void(bool, std::size_t)>;

        void add(std::size_t count);
        void finish();

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
    [[nodiscard]] std::shared_ptr<Wait> wait(JournalFilter filter, std::size_t count,
                                             std::function<void(bool, std::size_t)> done);

  private:
    struct State {
        std::deque<JournalEntry> entries;
        std::int64_t lastID = 0;
        std::size_t bytes = 0;
        std::size_t bodiless = 0;  ///< how many of the oldest have lost their bodies
        std::uint64_t dropped = 0;
        std::vector<std::weak_ptr<Wait>> waits;
    };

    [[nodiscard]] SharedBody kept(SharedBody body) const;
    void makeRoom(State& state, std::vector<JournalEntry>& removed) const;

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

/// The entries as an HTTP Archive (HAR 1.2, http://www.softwareishard.com/blog/har-12-spec/).
/// @param baseURL  of the namespace
[[nodiscard]] boost::json::object archiveJSON(const Journal::Entries& entries,
                                              const std::string& baseURL);

}  // namespace KestrinProfileServer
