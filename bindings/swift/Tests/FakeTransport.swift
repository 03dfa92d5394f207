import Foundation
import KestrinProfile

/// A request that waits for its reply.
final class Sent: @unchecked Sendable {
    let request: TransferRequest
    private let lock = NSLock()
    private var outcome: Result<TransferReply, any Error>?
    private var waiting: CheckedContinuation<TransferReply, any Error>?

    init(_ request: TransferRequest) {
        self.request = request
    }

    func finish(_ status: Int, _ body: String) {
        end(.success(FakeTransport.reply(status, body)))
    }

    /// The first end counts.
    func end(_ result: Result<TransferReply, any Error>) {
        let waiting = lock.withLock {
            if outcome == nil { outcome = result }
            defer { self.waiting = nil }
            return self.waiting
        }
        waiting?.resume(with: result)
    }

    func reply() async throws -> TransferReply {
        try await withCheckedThrowingContinuation { continuation in
            let known = lock.withLock {
                if outcome == nil { waiting = continuation }
                return outcome
            }
            if let known { continuation.resume(with: known) }
        }
    }
}

/// A transport that answers every request alike, or keeps what it was given.
final class FakeTransport: Transport {
    static let emptyList = #"{"elements": []}"#
    nonisolated(unsafe) static var configuration = ""

    let waiting = Mailbox<Sent>()
    let cancelled = Mailbox<TransferRequest>()
    let count = Shared(0)
    private let answer: Result<TransferReply, any Error>?

    private init(_ answer: Result<TransferReply, any Error>?) {
        self.answer = answer
    }

    static func reply(_ status: Int, _ body: String) -> TransferReply {
        TransferReply(
            status: status, headers: [Header(name: "Content-Type", value: "application/json")],
            body: Data(body.utf8))
    }

    /// With the configuration that the project ships, and binds of the parent and a kid.
    static func answering(_ status: Int, _ body: String) throws -> FakeTransport {
        try used(FakeTransport(.success(reply(status, body))))
    }

    static func failing(_ error: any Error) throws -> FakeTransport {
        try used(FakeTransport(.failure(error)))
    }

    /// What it gets waits for the test.
    static func keeping() throws -> FakeTransport {
        try used(FakeTransport(nil))
    }

    private static func used(_ transport: FakeTransport) throws -> FakeTransport {
        try ConfigurationManager.setTransport(transport)
        try ConfigurationManager.dropBinds()
        try ConfigurationManager.configure(
            String(contentsOfFile: configuration, encoding: .utf8))
        try ConfigurationManager.storeBind(
            AnonymousBind(profileID: "kid", token: "the.kids.token"))
        try ConfigurationManager.storeBind(
            AnonymousBind(profileID: "parent", token: "the.parents.token"))
        try ConfigurationManager.selectProfile("kid")
        return transport
    }

    func send(_ request: TransferRequest) async throws -> TransferReply {
        count.change { $0 += 1 }
        if let answer { return try answer.get() }
        let sent = Sent(request)
        waiting.put(sent)
        return try await withTaskCancellationHandler {
            try await sent.reply()
        } onCancel: {
            cancelled.put(request)
            sent.end(.failure(CancellationError()))
        }
    }
}
