import Foundation
import KestrinProfile

/// What a test found.
struct Unexpected: Error, CustomStringConvertible {
    let description: String
}

/// A test, by what it says.
struct Test: Sendable {
    let name: String
    let run: @Sendable () async throws -> Void

    init(_ name: String, _ run: @escaping @Sendable () async throws -> Void) {
        self.name = name
        self.run = run
    }
}

func that(_ holds: Bool, _ what: String, file: String = #fileID, line: Int = #line) throws {
    if !holds { throw Unexpected(description: "\(file):\(line): not so: \(what)") }
}

func equal<Value: Equatable>(
    _ expected: Value, _ found: Value, file: String = #fileID, line: Int = #line
) throws {
    try that(expected == found, "\(found) is \(expected)", file: file, line: line)
}

func contains(
    _ part: String, _ text: String, file: String = #fileID, line: Int = #line
) throws {
    try that(text.contains(part), "'\(text)' has '\(part)'", file: file, line: line)
}

func ok(_ response: Response, file: String = #fileID, line: Int = #line) throws {
    let status = response.status
    try that((200..<300).contains(status), "\(status) is a success", file: file, line: line)
}

/// The error of the library that it throws.
func failure<Value>(
    file: String = #fileID, line: Int = #line, _ body: () async throws -> Value
) async throws -> KestrinError {
    do {
        _ = try await body()
    } catch let error as KestrinError {
        return error
    } catch {
        throw Unexpected(description: "\(file):\(line): threw \(type(of: error)): \(error)")
    }
    throw Unexpected(description: "\(file):\(line): nothing was thrown")
}

/// It throws `CancellationError`.
func cancelled<Value>(
    file: String = #fileID, line: Int = #line, _ body: () async throws -> Value
) async throws {
    do {
        _ = try await body()
    } catch is CancellationError {
        return
    }
    throw Unexpected(description: "\(file):\(line): it was not cancelled")
}

/// Goes on once it holds; other threads see to that.
func until(_ holds: () throws -> Bool) async rethrows {
    while try !holds() { await Task.yield() }
}

/// A queue of which somebody may await the next.
final class Mailbox<Value: Sendable>: Sendable {
    private let stream: AsyncStream<Value>
    private let continuation: AsyncStream<Value>.Continuation

    init() {
        (stream, continuation) = AsyncStream<Value>.makeStream()
    }

    func put(_ value: Value) {
        continuation.yield(value)
    }

    func next() async throws -> Value {
        for await value in stream { return value }
        throw Unexpected(description: "nothing comes any more")
    }
}

/// A value that several threads change.
final class Shared<Value: Sendable>: @unchecked Sendable {
    private let lock = NSLock()
    private var current: Value

    init(_ value: Value) {
        current = value
    }

    var value: Value { lock.withLock { current } }

    func change(_ body: (inout Value) -> Void) {
        lock.withLock { body(&current) }
    }
}

/// Whether something still exists.
final class Watched: @unchecked Sendable {
    private let lock = NSLock()
    private weak var object: AnyObject?

    init(_ object: AnyObject) {
        self.object = object
    }

    var isAlive: Bool { lock.withLock { object != nil } }
}
