import CKestrinProfile
import Foundation

/// Keeps writes until the service has taken them; docs/outbox.md.
///
/// It ends with the last who has it, or with ``close()``. Its reporters have it, and so has what is
/// awaited.
public final class Outbox: Sendable {
    let handle: Handle
    // It sends as its profiles.
    private let household: Household

    init(_ household: Household, _ options: OutboxOptions) throws {
        self.household = household
        handle = try Handle("outbox", release: kestrin_outbox_release) { place in
            try household.handle.use { household in
                CallMemory.with { memory in
                    var view = options.view(in: memory)
                    return kestrin_outbox_create(household, &view, place)
                }
            }
        }
    }

    /// Ends when the store was opened: what was found.
    @discardableResult
    public func opening() async throws -> OutboxState {
        try await start(kestrin_outbox_opening).outboxState()
    }

    /// Ends once nothing is being sent or stored.
    @discardableResult
    public func settled() async throws -> OutboxState {
        try await start(kestrin_outbox_settled).outboxState()
    }

    /// Keeps a write of any profile. Ends once it is stored.
    @discardableResult
    public func add(_ write: OutboxWrite) async throws -> OutboxEntry {
        try await start { outbox, completion, request in
            CallMemory.with { memory in
                var view = write.view(in: memory)
                return kestrin_outbox_add(outbox, &view, completion, request)
            }
        }.entry()
    }

    /// Drops a write that waits or was refused; gives whether there was one.
    @discardableResult
    public func drop(_ number: Int64) async throws -> Bool {
        try await start { kestrin_outbox_drop($0, number, $1, $2) }.number() > 0
    }

    /// The writes that wait, by their numbers.
    public func entries() throws -> [OutboxEntry] {
        try read(kestrin_outbox_entries)
    }

    /// The writes that the service has refused.
    public func refused() throws -> [OutboxEntry] {
        try read(kestrin_outbox_refused)
    }

    /// Every event from now on, in their order. It ends with the outbox; of one that was closed, or if
    /// there is no memory for it, there is none. Each call gives a sequence of its own, which keeps what
    /// nobody has taken yet.
    public func events() -> AsyncStream<OutboxEvent> {
        let (stream, continuation) = AsyncStream<OutboxEvent>.makeStream()
        let watch = OutboxWatch(continuation)
        continuation.onTermination = { _ in cancellation.async { watch.cancel() } }
        if (try? handle.use({ watch.begin($0) })) == nil { continuation.finish() }
        return stream
    }

    /// Tries at once what waits for the service: to be called when the network is back.
    public func networkIsBack() throws {
        try KestrinError.check(handle.use { kestrin_outbox_network_is_back($0) })
    }

    /// Goes on with a profile's writes that wait for a bind: after signing in again.
    public func bindIsNew(_ profileID: String) throws {
        let status = try handle.use { outbox in
            CallMemory.with { kestrin_outbox_bind_is_new(outbox, $0.text(profileID)) }
        }
        try KestrinError.check(status)
    }

    /// Ends the outbox once no reporter uses it: stores what was added before, which may wait for the
    /// disk; its writes stay.
    public func close() {
        handle.close()
    }

    private func start(
        _ begin: (
            OpaquePointer, UnsafePointer<kestrin_completion>,
            UnsafeMutablePointer<OpaquePointer?>
        ) -> kestrin_status
    ) async throws -> Answer {
        try await answer { completion, request in
            try handle.use { begin($0, completion, request) }
        }
    }

    private func read(
        _ function: (
            OpaquePointer, UnsafeMutablePointer<UnsafeMutablePointer<kestrin_result>?>
        ) -> kestrin_status
    ) throws -> [OutboxEntry] {
        try handle.use { outbox in
            try Answer.made { function(outbox, $0) }.kept()
        }
    }
}
