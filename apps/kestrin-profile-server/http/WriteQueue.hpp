#pragma once

#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include <internal/Guarded.hpp>
#include <kestrin-profile-server/http/Reply.hpp>
#include <kestrin-profile-server/storage/Database.hpp>

namespace KestrinProfileServer {

/// All writes, one after another, on one thread and one connection. What waits when the thread is
/// free goes into one transaction, so that many writers share one flush to the disk; each of them
/// has its own savepoint. A failed write leaves nothing and disturbs no other. A write is answered
/// only when its transaction is on the disk. What deleted profiles have left is removed meanwhile,
/// one piece between two transactions.
class WriteQueue {
  public:
    /// Changes the database and says what to answer; a failure reply undoes its changes. Must not
    /// throw.
    using Work = std::function<Reply(Connection&)>;
    /// Takes the answer, on the queue's thread, before the next transaction begins.
    using Done = std::function<void(Reply)>;
    /// Whether a write shares its transaction with others that wait.
    enum class Transaction { shared, own };

    explicit WriteQueue(const std::filesystem::path& file,
                        Durability durability = Durability::full);
    /// Finishes what waits.
    ~WriteQueue();
    WriteQueue(const WriteQueue&) = delete;
    WriteQueue& operator=(const WriteQueue&) = delete;

    /// `instance` is what a problem document names when the transaction itself fails.
    void add(std::string instance, Work work, Done done,
             Transaction transaction = Transaction::shared);

  private:
    struct Job {
        std::string instance;
        Work work;
        Done done;
        Transaction transaction = Transaction::shared;
    };

    /// What waits, or nothing if there is something to purge; absent at the end.
    [[nodiscard]] std::optional<std::vector<Job>> takeWaiting();
    void serve();
    void purge();
    void rollBack();
    /// How many of the first jobs go into one transaction.
    [[nodiscard]] static std::size_t sharingOf(std::span<const Job> jobs);
    void runAll(std::span<Job> jobs);
    void runBatch(std::span<Job> batch);
    [[nodiscard]] std::vector<Reply> committed(std::span<const Job> batch);
    [[nodiscard]] Reply committedAlone(const Work& work);
    [[nodiscard]] Reply runInSavepoint(const Work& work);
    [[nodiscard]] Reply run(const Work& work);

    Connection connection_;
    /// Whether deleted profiles have left something. Belongs to the thread.
    bool isPurging_ = false;
    struct Shared {
        std::vector<Job> waiting;
        bool isClosing = false;
    };
    KestrinInternal::Guarded<Shared> shared_;
    std::condition_variable changed_;
    std::thread thread_;
};

}  // namespace KestrinProfileServer
