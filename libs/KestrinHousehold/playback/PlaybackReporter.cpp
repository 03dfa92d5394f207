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
void follow(const HalvardSling::Observable<T>& observable, std::function<void()> taken,
            std::function<void(const std::exception_ptr&)> failed) {
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
    return [outbox = std::move(outbox)](const OutboxWrite& write, std::function<void()> taken,
                                        std::function<void(const std::exception_ptr&)> failed) {
        follow(outbox->add(write), std::move(taken), std::move(failed));
    };
}

PlaybackSink sendWith(std::shared_ptr<OutboxDelivery> delivery) {
    return [delivery = std::move(delivery)](const OutboxWrite& write, std::function<void()> taken,
                                            std::function<void(const std::exception_ptr&)> failed) {
        follow(delivery->send(write), std::move(taken), std::move(failed));
    };
}

/// Shared with the writes on their way.
class PlaybackReporter::Core : public std::enable_shared_from_this<Core> {
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
                isFinished_ = false;
                isEndToWrite_ = false;
                position_.reset();
            }
            const bool isNeededForEnd = isEndToWrite_ && !position_;
            if (!position || *position < nanoseconds(0) || (isFinished_ && !isNeededForEnd)) return;
            position_ = std::chrono::floor<std::chrono::seconds>(*position).count();
            const auto elapsed = scheduler_->steadyTime() - lastWrite_;
            if (!isNeededForEnd && elapsed < options_.interval) return;
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

    /// Makes a write of what is known and was not written, once no other is on its way.
    void writeNow() {
        {
            const std::scoped_lock lock(mutex_);
            isWanted_ = true;
        }
        run();
    }

  private:
    void run() {
        for (;;) {
            OutboxWrite write;
            {
                const std::scoped_lock lock(mutex_);
                if (isOnItsWay_ || !std::exchange(isWanted_, false)) return;
                if (!position_ || (!isEndToWrite_ && position_ == written_)) return;
                isOnItsWay_ = true;
                lastWrite_ = scheduler_->steadyTime();
                write = {video_.profileID, video_.brandID,
                         KestrinProfile::ProfileOperation::addVideoToHistory, video_.videoID};
                write.progress = position_;
                if (std::exchange(isEndToWrite_, false)) write.isComplete = true;
                written_ = position_;
            }
            send(write);
        }
    }

    void send(const OutboxWrite& write) {
        const auto self = shared_from_this();
        const bool isEnd = write.isComplete.has_value();
        const auto failed = [self, isEnd](const std::exception_ptr& error) {
            self->failed(isEnd, error);
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

    void failed(bool isEnd, const std::exception_ptr& error) {
        {
            const std::scoped_lock lock(mutex_);
            isOnItsWay_ = false;
            written_.reset();
            if (isEnd) isEndToWrite_ = true;
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
    bool isFinished_ = false;
    bool isEndToWrite_ = false;
    bool isWanted_ = false;
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
    core_->writeNow();
}

void PlaybackReporter::inBackground() {
    core_->writeNow();
}

void PlaybackReporter::finished() {
    core_->finished();
}

}  // namespace KestrinHousehold
