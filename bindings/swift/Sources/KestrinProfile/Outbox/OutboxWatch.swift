import CKestrinProfile
import Foundation

/// Somebody who is told of an outbox's events.
final class OutboxWatch: Context, @unchecked Sendable {
    private let continuation: AsyncStream<OutboxEvent>.Continuation
    private let lock = NSLock()
    private var request: OpaquePointer?
    private var ended = false

    init(_ continuation: AsyncStream<OutboxEvent>.Continuation) {
        self.continuation = continuation
    }

    deinit {
        kestrin_request_release(request)
    }

    func begin(_ outbox: OpaquePointer) {
        var watcher = kestrin_outbox_watcher()
        watcher.size = MemoryLayout<kestrin_outbox_watcher>.stride
        watcher.context = retained()
        watcher.event = { context, event in
            guard let event else { return }
            OutboxWatch.at(context).continuation.yield(OutboxEvent(event.pointee))
        }
        watcher.release_context = { context in
            OutboxWatch.at(context).continuation.finish()
            OutboxWatch.release(context)
        }
        var begun: OpaquePointer?
        // A watch that does not begin ends at once: its context is released.
        _ = kestrin_outbox_watch(outbox, &watcher, &begun)
        let ended = lock.withLock {
            request = begun
            return self.ended
        }
        if ended { cancel() }
    }

    /// Nobody listens any more.
    func cancel() {
        let begun = lock.withLock {
            ended = true
            return request
        }
        if let begun { kestrin_request_cancel(begun) }
    }
}
