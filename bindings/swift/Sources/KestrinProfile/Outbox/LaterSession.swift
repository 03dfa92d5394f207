import CKestrinProfile

/// A session whose writes an ``Outbox`` keeps until the service has them. A function ends once the
/// write is stored.
public struct LaterSession: ListWrites {
    private let session: ProfileSession
    private let outbox: Outbox

    init(_ session: ProfileSession, _ outbox: Outbox) {
        self.session = session
        self.outbox = outbox
    }

    /// Does what the functions of ``ListWrites`` ask for.
    public func write(_ call: Call) async throws -> OutboxEntry {
        try await answer { completion, request in
            try session.handle.use { session in
                try outbox.handle.use { outbox in
                    CallMemory.with { memory in
                        var view = call.view(in: memory)
                        return kestrin_session_keep(session, outbox, &view, completion, request)
                    }
                }
            }
        }.entry()
    }
}
