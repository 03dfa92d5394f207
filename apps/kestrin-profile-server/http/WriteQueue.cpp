#include <algorithm>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <utility>

#include <kestrin-profile-server/domain/Profiles.hpp>
#include <kestrin-profile-server/http/StartedThread.hpp>
#include <kestrin-profile-server/http/WriteQueue.hpp>

namespace KestrinProfileServer {

WriteQueue::WriteQueue(const std::filesystem::path& file, Durability durability)
    : connection_(file, Connection::Mode::readWrite, durability),
      isPurging_(hasPurges(connection_)),
      thread_(startedThread([this] { serve(); })) {}

WriteQueue::~WriteQueue() {
    shared_.lock()->isClosing = true;
    changed_.notify_one();
    thread_.join();
}

void WriteQueue::add(std::string instance, Work work, Done done, Transaction transaction) {
    shared_.lock()->waiting.push_back(
        {std::move(instance), std::move(work), std::move(done), transaction});
    changed_.notify_one();
}

std::optional<std::vector<WriteQueue::Job>> WriteQueue::takeWaiting() {
    auto shared = shared_.lock();
    shared.wait(changed_,
                [&] { return shared->isClosing || isPurging_ || !shared->waiting.empty(); });
    if (shared->isClosing && shared->waiting.empty()) return std::nullopt;
    return std::exchange(shared->waiting, {});
}

void WriteQueue::serve() {
    purge();
    while (auto waiting = takeWaiting()) {
        runAll(*waiting);
        purge();
    }
}

std::size_t WriteQueue::sharingOf(std::span<const Job> jobs) {
    if (jobs.front().transaction == Transaction::own) return 1;
    const auto end = std::ranges::find(jobs, Transaction::own, &Job::transaction);
    return static_cast<std::size_t>(end - jobs.begin());
}

void WriteQueue::runAll(std::span<Job> jobs) {
    while (!jobs.empty()) {
        const std::size_t size = sharingOf(jobs);
        runBatch(jobs.first(size));
        jobs = jobs.subspan(size);
    }
}

void WriteQueue::purge() {
    if (!isPurging_) return;
    try {
        Query(connection_, "BEGIN IMMEDIATE").run();
        purgePiece(connection_);
        isPurging_ = hasPurges(connection_);
        Query(connection_, "COMMIT").run();
    } catch (const std::exception& failure) {
        // Tried again after the next write.
        isPurging_ = false;
        std::cerr << "cannot remove what a deleted profile has left: " << failure.what() << '\n';
        rollBack();
    }
}

void WriteQueue::rollBack() {
    try {
        if (connection_.isInTransaction()) Query(connection_, "ROLLBACK").run();
    } catch (const std::exception& failure) {
        // The next write does not begin then, and says so.
        std::cerr << "cannot roll back: " << failure.what() << '\n';
    }
}

void WriteQueue::runBatch(std::span<Job> batch) {
    std::vector<Reply> replies;
    try {
        replies = committed(batch);
    } catch (const std::exception& failure) {
        std::cerr << "cannot write to the database: " << failure.what() << '\n';
        const Problem problem(ProblemKind::unavailable,
                              "the database could not be written; nothing was changed, try again");
        replies.clear();
        for (const Job& job : batch)
            replies.push_back(replyTo(problem, job.instance));
    }
    for (std::size_t index = 0; index < batch.size(); ++index)
        batch[index].done(std::move(replies[index]));
}

std::vector<Reply> WriteQueue::committed(std::span<const Job> batch) {
    try {
        Query(connection_, "BEGIN IMMEDIATE").run();
        if (batch.size() == 1) return {committedAlone(batch.front().work)};
        std::vector<Reply> replies;
        replies.reserve(batch.size());
        for (const Job& job : batch)
            replies.push_back(runInSavepoint(job.work));
        // Within the transaction this takes no lock of its own.
        isPurging_ = hasPurges(connection_);
        Query(connection_, "COMMIT").run();
        return replies;
    } catch (const std::exception&) {
        rollBack();
        throw;
    }
}

Reply WriteQueue::committedAlone(const Work& work) {
    Reply reply = run(work);
    if (!isFailure(reply)) isPurging_ = hasPurges(connection_);
    Query(connection_, isFailure(reply) ? "ROLLBACK" : "COMMIT").run();
    return reply;
}

Reply WriteQueue::runInSavepoint(const Work& work) {
    Query(connection_, "SAVEPOINT one_write").run();
    Reply reply = run(work);
    if (isFailure(reply)) Query(connection_, "ROLLBACK TO one_write").run();
    Query(connection_, "RELEASE one_write").run();
    return reply;
}

Reply WriteQueue::run(const Work& work) {
    Reply reply = work(connection_);
    if (!connection_.isInTransaction())
        throw std::runtime_error("the transaction was ended by a failure inside SQLite");
    return reply;
}

}  // namespace KestrinProfileServer
