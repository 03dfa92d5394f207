#include <atomic>
#include <mutex>
#include <utility>

#include <HalvardSling/http/Response.hpp>
#include <KestrinHousehold/playback/PlaybackReporter.hpp>

namespace KestrinHousehold {

using std::chrono::nanoseconds;

namespace {

/// Subscribes so that exactly one of the functions is called.
template <class T>
void follow(const HalvardSling::Observable<T>& observable, const std::function<void()>& taken,
            const std::function<void(const std::exception_ptr&)>& failed) {
    const auto isTaken = std::make_shared<std::atomic<bool>>(false);
    observable.subscribe(
        [isTaken, taken](const T&) {
            if (!isTaken->exchange(true)) taken();
        },
        [isTaken, failed](const std::exception_ptr& error) {
            if (!isTaken->exchange(true)) failed(error);
        },
        [isTaken, failed] {
            if (!isTaken->exchange(true)) failed(nullptr);
        });
}

}  // namespace

PlaybackSink keepIn(std::shared_ptr<Outbox> outbox) {
    return
        [outbox = std::move(outbox)](const OutboxWrite& write, const std::function<void()>& taken,
                                     const std::function<void(const std::exception_ptr&)>& failed) {
            follow(outbox->add(write), taken, failed);
        };
}

PlaybackSink sendWith(std::shared_ptr<OutboxDelivery> delivery) {
    return [delivery = std::move(delivery)](
               const OutboxWrite& write, const std::function<void()>& taken,
               const std::function<void(const std::exception_ptr&)>& failed) {
        follow(delivery->send(write), taken, failed);
    };
}

/// Shared with the writes on their way.
class [[gnu::visibility("hidden")]] PlaybackReporter::Core
    : public std::enable_shared_from_this<Core> {
  public:
    Core(PlaybackVideo video, PlaybackSink sink, std::shared_ptr<Scheduler> scheduler,
         PlaybackOptions options)
        : video_(std::move(video)),
          sink_(std::move(sink)),
          scheduler_(std::move(scheduler)),
          options_(std::move(options)),
          lastWrite_(scheduler_->steadyTime()) {}

    void positionIs(std::optional<nanoseconds> position, bool isMove) {
        {
            const std::scoped_lock lock(mutex_);
            if (isMove) {
                keepEnd();
                isFinished_ = false;
                isEndToWrite_ = false;
                position_.reset();
            }
            const bool isNeededForEnd = isEndToWrite_ && !position_;
            if (!position || *position < nanoseconds(0) || (isFinished_ && !isNeededForEnd)) return;
            position_ = std::chrono::floor<std::chrono::seconds>(*position).count();
            const auto now = scheduler_->steadyTime();
            // What was written when it was paused is not old when it goes on.
            if (isPaused_ && !isMove && written_ && position_ != written_) {
                isPaused_ = false;
                lastWrite_ = now;
            }
            if (!isNeededForEnd && now - lastWrite_ < options_.interval) return;
        }
        writeNow();
    }

    void finished() {
        {
            const std::scoped_lock lock(mutex_);
            isFinished_ = true;
            isEndToWrite_ = true;
        }
        writeNow();
    }

    void paused() {
        {
            const std::scoped_lock lock(mutex_);
            isPaused_ = true;
        }
        writeNow();
    }

    /// Makes a write of what is known and was not written, once no other is on its way.
    void writeNow() {
        {
            const std::scoped_lock lock(mutex_);
            isWanted_ = true;
        }
        run();
    }

  private:
    /// An end that is not written yet stays to be written, before what comes after it.
    void keepEnd() {
        if (!isEndToWrite_ || !position_) return;
        end_ = position_;
        isEndWanted_ = std::exchange(isWanted_, false);
    }

    void run() {
        for (;;) {
            // First, for it may lack memory.
            OutboxWrite write{video_.profileID, video_.brandID,
                              KestrinProfile::ProfileOperation::addVideoToHistory, video_.videoID};
            {
                const std::scoped_lock lock(mutex_);
                if (isOnItsWay_ || !(isWanted_ || isEndWanted_)) return;
                const bool isEarlierEnd = end_.has_value();
                const auto position = isEarlierEnd ? std::exchange(end_, std::nullopt) : position_;
                const bool isEnd = isEarlierEnd || isEndToWrite_;
                isEndWanted_ = false;
                if (!isEarlierEnd) isWanted_ = false;
                if (!position || (!isEnd && position == written_)) return;
                isOnItsWay_ = true;
                lastWrite_ = scheduler_->steadyTime();
                write.progress = position;
                if (isEnd) write.isComplete = true;
                if (!isEarlierEnd) isEndToWrite_ = false;
                written_ = position;
            }
            send(write);
        }
    }

    void send(const OutboxWrite& write) {
        const auto self = shared_from_this();
        const auto end = write.isComplete ? write.progress : std::nullopt;
        const auto failed = [self, end](const std::exception_ptr& error) {
            self->failed(end, error);
        };
        try {
            sink_(write, [self] { self->taken(); }, failed);
        } catch (...) {
            failed(std::current_exception());
        }
    }

    void taken() {
        {
            const std::scoped_lock lock(mutex_);
            isOnItsWay_ = false;
        }
        run();
    }

    /// @param end  the position of the end that was not taken; absent if it was another write
    void failed(std::optional<std::int64_t> end, const std::exception_ptr& error) {
        {
            const std::scoped_lock lock(mutex_);
            isOnItsWay_ = false;
            written_.reset();
            if (end && isFinished_) {
                isEndToWrite_ = true;
            } else if (end) {  // somebody watches again: with the next write, and not at once
                end_ = end;
                isWanted_ = false;
            }
        }
        if (options_.failed) options_.failed(error);
        run();
    }

    const PlaybackVideo video_;
    const PlaybackSink sink_;
    const std::shared_ptr<Scheduler> scheduler_;
    const PlaybackOptions options_;

    std::mutex mutex_;
    Scheduler::SteadyTime lastWrite_;
    std::optional<std::int64_t> position_;
    std::optional<std::int64_t> written_;
    std::optional<std::int64_t> end_;  // from before the last move, still to be written
    bool isPaused_ = false;            // and not known to have gone on
    bool isFinished_ = false;
    bool isEndToWrite_ = false;
    bool isWanted_ = false;
    bool isEndWanted_ = false;  // `end_`, but nothing that came after it
    bool isOnItsWay_ = false;
};

PlaybackReporter::PlaybackReporter(PlaybackVideo video, PlaybackSink sink,
                                   std::shared_ptr<Scheduler> scheduler, PlaybackOptions options)
    : core_(std::make_shared<Core>(std::move(video), std::move(sink), std::move(scheduler),
                                   std::move(options))) {}

PlaybackReporter::~PlaybackReporter() {
    core_->writeNow();
}

void PlaybackReporter::positionIs(std::optional<nanoseconds> position) {
    core_->positionIs(position, false);
}

void PlaybackReporter::movedTo(std::optional<nanoseconds> position) {
    core_->positionIs(position, true);
}

void PlaybackReporter::paused() {
    core_->paused();
}

void PlaybackReporter::inBackground() {
    core_->writeNow();
}

void PlaybackReporter::finished() {
    core_->finished();
}

}  // namespace KestrinHousehold
