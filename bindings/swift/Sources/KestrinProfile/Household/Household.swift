import CKestrinProfile
import Foundation

/// A household: its sessions, and what they share. Its binds are those of the process.
///
/// It ends with the last who has it, or with ``close()``. Its sessions, outboxes and reporters have it,
/// and so has what is awaited.
public final class Household: Sendable {
    let handle: Handle
    private let hub: EventHub<HouseholdEvent>

    /// A household with options, or the defaults.
    ///
    /// - Throws: ``KestrinError`` if the retry policy is none.
    public init(options: HouseholdOptions = HouseholdOptions()) throws {
        let hub = EventHub(options.log)
        self.hub = hub
        handle = try Handle("household", release: kestrin_household_release) { place in
            CallMemory.with { memory in
                var view = kestrin_household_options()
                view.size = MemoryLayout<kestrin_household_options>.stride
                view.retry = memory.one(options.retry.view(in: memory))
                view.clock = options.clock.map { memory.one(ClockHooks.view(of: $0)) }
                view.log = memory.one(Self.log(hub))
                return kestrin_household_create(&view, place)
            }
        }
    }

    /// Connects to the configured hosts, so that later calls find a connection. Gives how many have
    /// answered.
    @discardableResult
    public func warmUp() async throws -> Int {
        let answer = try await answer { completion, request in
            try handle.use { kestrin_household_warm_up($0, completion, request) }
        }
        return Int(try answer.number())
    }

    /// A session of a profile. Sends nothing.
    ///
    /// - Parameter profileID: nil: the household's parent, as it is configured now
    /// - Throws: ``KestrinError`` if the household was closed.
    public func session(_ profileID: String? = nil) throws -> ProfileSession {
        try session(options: SessionOptions(profileID: profileID))
    }

    /// The same with options.
    public func session(options: SessionOptions) throws -> ProfileSession {
        try ProfileSession(self, options)
    }

    /// Opens an outbox that sends as the profiles of the household, and begins to send. Once the
    /// household is closed its writes wait for the next start.
    ///
    /// - Throws: ``KestrinError`` if the household was closed, or the options are none.
    public func openOutbox(options: OutboxOptions = OutboxOptions()) throws -> Outbox {
        try Outbox(self, options)
    }

    /// A playback reporter; one for each time that somebody watches.
    ///
    /// - Throws: ``KestrinError`` if the household was closed.
    public func reporter(options: ReporterOptions) throws -> PlaybackReporter {
        try PlaybackReporter(self, options)
    }

    /// What happens from now on: repeats and binds. It ends with the household. Each call gives a
    /// sequence of its own, which keeps what nobody has taken yet.
    public func events() -> AsyncStream<HouseholdEvent> {
        hub.stream()
    }

    /// Ends the household; all its requests throw `CancellationError`.
    public func close() {
        handle.close()
        // Its sessions may stay, and with them what the library has of it.
        hub.finish()
    }

    private static func log(_ hub: EventHub<HouseholdEvent>) -> kestrin_household_log {
        var log = kestrin_household_log()
        log.size = MemoryLayout<kestrin_household_log>.stride
        log.context = hub.retained()
        log.event = { context, event in
            guard let event else { return }
            EventHub<HouseholdEvent>.at(context).tell { HouseholdEvent(event.pointee) }
        }
        log.release_context = { context in
            EventHub<HouseholdEvent>.at(context).finish()
            EventHub<HouseholdEvent>.release(context)
        }
        return log
    }
}

/// What an application makes of its household.
public struct HouseholdOptions: Sendable {
    /// Which requests are repeated.
    public var retry: RetryPolicy
    /// Nil: the system's, with a thread while something waits.
    public var clock: (any HouseholdClock)?
    /// Told of repeats and binds, where they happen, several at once perhaps; it must not block.
    /// ``Household/events()`` is the same as a sequence.
    public var log: (@Sendable (HouseholdEvent) -> Void)?

    /// The defaults, unless it says otherwise.
    public init(
        retry: RetryPolicy = RetryPolicy(), clock: (any HouseholdClock)? = nil,
        log: (@Sendable (HouseholdEvent) -> Void)? = nil
    ) {
        self.retry = retry
        self.clock = clock
        self.log = log
    }
}
