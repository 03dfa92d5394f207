import CKestrinProfile
import Foundation

/// One handle of the library: released once, by `close` or with the object, and not while it is used.
final class Handle: @unchecked Sendable {
    private let name: String
    private let release: @Sendable (OpaquePointer) -> Void
    private let lock = NSLock()
    private var pointer: OpaquePointer?
    private var users = 0
    private var closed = false

    /// `make` puts the handle into its argument.
    init(
        _ name: String, release: @escaping @Sendable (OpaquePointer?) -> Void,
        make: (UnsafeMutablePointer<OpaquePointer?>) throws -> kestrin_status
    ) throws {
        self.name = name
        self.release = { release($0) }
        try KestrinError.check(make(&pointer))
    }

    deinit {
        if let pointer { release(pointer) }
    }

    /// Throws if it was closed before.
    func use<Value>(_ body: (OpaquePointer) throws -> Value) throws -> Value {
        let pointer = try enter()
        defer { leave() }
        return try body(pointer)
    }

    /// Does nothing if it was closed before. Whoever uses it meanwhile is the one that releases it.
    func close() {
        releaseUnused { closed = true }
    }

    private func enter() throws -> OpaquePointer {
        try lock.withLock {
            guard let pointer, !closed else { throw KestrinError.closed(name) }
            users += 1
            return pointer
        }
    }

    private func leave() {
        releaseUnused { users -= 1 }
    }

    private func releaseUnused(after change: () -> Void) {
        let last: OpaquePointer? = lock.withLock {
            change()
            guard closed, users == 0 else { return nil }
            defer { pointer = nil }
            return pointer
        }
        if let last { release(last) }
    }
}
