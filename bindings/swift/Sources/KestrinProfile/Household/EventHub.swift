import Foundation

/// Hands events to whoever listens.
final class EventHub<Event: Sendable>: Context, @unchecked Sendable {
    private let log: (@Sendable (Event) -> Void)?
    private let lock = NSLock()
    private var listeners: [UInt64: AsyncStream<Event>.Continuation] = [:]
    private var last: UInt64 = 0
    private var ended = false

    init(_ log: (@Sendable (Event) -> Void)?) {
        self.log = log
    }

    /// Of what happens from now on.
    func stream() -> AsyncStream<Event> {
        let (stream, continuation) = AsyncStream<Event>.makeStream()
        guard let key = add(continuation) else {
            continuation.finish()
            return stream
        }
        continuation.onTermination = { [weak self] _ in self?.remove(key) }
        return stream
    }

    /// Makes the event only if somebody listens.
    func tell(_ event: () -> Event) {
        let listening = lock.withLock { Array(listeners.values) }
        if log == nil && listening.isEmpty { return }
        let event = event()
        log?(event)
        for listener in listening { listener.yield(event) }
    }

    func finish() {
        let listening = lock.withLock {
            ended = true
            defer { listeners = [:] }
            return Array(listeners.values)
        }
        for listener in listening { listener.finish() }
    }

    private func add(_ continuation: AsyncStream<Event>.Continuation) -> UInt64? {
        lock.withLock {
            if ended { return nil }
            last += 1
            listeners[last] = continuation
            return last
        }
    }

    private func remove(_ key: UInt64) {
        // The continuation is let go of outside the lock.
        _ = lock.withLock { listeners.removeValue(forKey: key) }
    }
}
