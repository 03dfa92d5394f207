#include <optional>
#include <utility>

#include <HalvardSling/testing/FakeTransport.hpp>

namespace HalvardSling {

namespace {

SlingError destroyedError() {
    return {SlingErrorKind::cancelled, "the fake transport was destroyed"};
}

}  // namespace

FakeTransport::~FakeTransport() {
    // A completion may send and cancel, so that none of them is called while the map is walked.
    std::unique_lock lock(mutex_);
    ending_ = true;
    while (!waiting_.empty()) {
        const auto completion = std::move(waiting_.extract(waiting_.begin()).mapped());
        lock.unlock();
        completion(destroyedError());
        lock.lock();
    }
}

void FakeTransport::willAnswer(TransportResult result) {
    const std::scoped_lock lock(mutex_);
    script_.push_back(std::move(result));
}

void FakeTransport::willAnswer(int status, std::string body, Headers headers) {
    willAnswer(Response({.status = status,
                         .headers = std::move(headers),
                         .body = std::move(body),
                         .effectiveURL = {},
                         .timings = {}}));
}

void FakeTransport::alwaysAnswer(Reply reply) {
    const std::scoped_lock lock(mutex_);
    reply_ = std::move(reply);
}

std::vector<TransportRequest> FakeTransport::requests() const {
    const std::scoped_lock lock(mutex_);
    std::vector<TransportRequest> all;
    all.reserve(requests_.size());
    for (const auto& request : requests_)
        all.push_back(*request);
    return all;
}

std::vector<TransferID> FakeTransport::waiting() const {
    const std::scoped_lock lock(mutex_);
    std::vector<TransferID> all;
    all.reserve(waiting_.size());
    for (const auto& [transfer, completion] : waiting_)
        all.push_back(transfer);
    return all;
}

std::size_t FakeTransport::cancelled() const {
    const std::scoped_lock lock(mutex_);
    return cancelled_;
}

bool FakeTransport::answer(TransferID transfer, TransportResult result) {
    TransportCompletion completion;
    {
        const std::scoped_lock lock(mutex_);
        auto found = waiting_.extract(transfer);
        if (found.empty()) return false;
        completion = std::move(found.mapped());
    }
    completion(std::move(result));
    return true;
}

TransferID FakeTransport::send(CheckedRequest request, TransportCompletion completion) {
    std::optional<TransportResult> scripted;
    Reply reply;
    TransferID transfer = 0;
    {
        const std::scoped_lock lock(mutex_);
        transfer = ++last_;
        requests_.push_back(request);
        if (ending_) {
            scripted = destroyedError();
        } else if (!script_.empty()) {
            scripted = std::move(script_.front());
            script_.pop_front();
        } else if (reply_) {
            reply = reply_;
        } else {
            waiting_.emplace(transfer, std::move(completion));
            return transfer;
        }
    }
    completion(scripted ? std::move(*scripted) : reply(*request));
    return transfer;
}

void FakeTransport::cancel(TransferID transfer) noexcept {
    TransportCompletion dropped;
    const std::scoped_lock lock(mutex_);
    auto found = waiting_.extract(transfer);
    if (found.empty()) return;
    ++cancelled_;
    dropped = std::move(found.mapped());
}

}  // namespace HalvardSling
