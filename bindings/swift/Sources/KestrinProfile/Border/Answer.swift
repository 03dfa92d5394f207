import CKestrinProfile
import Foundation

/// What came of a ``Call``. The operations read it; an application has no use for it.
public final class Answer: @unchecked Sendable {
    private let pointer: UnsafeMutablePointer<kestrin_result>

    /// Takes the result over.
    init(_ pointer: UnsafeMutablePointer<kestrin_result>) {
        self.pointer = pointer
    }

    /// What a function gives that does not wait.
    static func made(
        _ function: (UnsafeMutablePointer<UnsafeMutablePointer<kestrin_result>?>) -> kestrin_status
    ) throws -> Answer {
        var result: UnsafeMutablePointer<kestrin_result>?
        try KestrinError.check(function(&result))
        guard let result else { throw KestrinError.missingValue }
        return Answer(result)
    }

    deinit {
        kestrin_result_release(pointer)
    }

    /// The result as it is; it throws what went wrong.
    func value<Value>(_ read: (kestrin_result) throws -> Value) throws -> Value {
        try withExtendedLifetime(self) {
            let result = pointer.pointee
            if Int(result.outcome) == KESTRIN_CANCELLED { throw CancellationError() }
            if let error = result.error { throw KestrinError(error.pointee) }
            return try read(result)
        }
    }

    func response() throws -> Response {
        try value { Response(try Self.given($0.response)) }
    }

    func bind() throws -> AnonymousBind {
        try value { AnonymousBind(try Self.given($0.bind)) }
    }

    func list() throws -> UserProfile {
        try value { UserProfile(try Self.given($0.list)) }
    }

    func users() throws -> [User] {
        try value { result in
            let users = result.users
            return elements(users.first, users.count, users.stride) { User($0.pointee) }
        }
    }

    func user() throws -> User {
        try Self.first(users())
    }

    func kept() throws -> [OutboxEntry] {
        try value { result in
            let kept = result.kept
            return elements(kept.first, kept.count, kept.stride) { OutboxEntry($0.pointee) }
        }
    }

    func entry() throws -> OutboxEntry {
        try Self.first(kept())
    }

    func outboxState() throws -> OutboxState {
        try value { OutboxState(try Self.given($0.outbox_state)) }
    }

    func number() throws -> UInt64 {
        try value { $0.number }
    }

    func heldBinds() throws -> HeldBinds {
        try value { result in
            let binds = result.binds
            return HeldBinds(
                binds: elements(binds.first, binds.count, binds.stride) {
                    AnonymousBind($0.pointee)
                },
                selectedProfileID: result.text.string)
        }
    }

    private static func given<View>(_ view: UnsafePointer<View>?) throws -> View {
        guard let view else { throw KestrinError.missingValue }
        return view.pointee
    }

    private static func first<Value>(_ values: [Value]) throws -> Value {
        guard let first = values.first else { throw KestrinError.missingValue }
        return first
    }
}
