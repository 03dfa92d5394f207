import CKestrinProfile
import Foundation

/// Begins something: hands the completion to the library, which puts the request into the second
/// argument.
typealias Start = (UnsafePointer<kestrin_completion>, UnsafeMutablePointer<OpaquePointer?>) throws
    -> kestrin_status

/// Begins something and awaits it. The cancellation of the task is that of the request.
func answer(_ start: Start) async throws -> Answer {
    let request = Request()
    return try await withTaskCancellationHandler {
        try await withCheckedThrowingContinuation { request.begin($0, start) }
    } onCancel: {
        request.cancel()
    }
}

/// A request that is under way. Its handle is released with the last who has it.
private final class Request: @unchecked Sendable {
    private let lock = NSLock()
    private var handle: OpaquePointer?
    private var cancelled = false

    deinit {
        kestrin_request_release(handle)
    }

    func begin(_ continuation: CheckedContinuation<Answer, any Error>, _ start: Start) {
        if lock.withLock({ cancelled }) {
            continuation.resume(throwing: CancellationError())
            return
        }
        let context = Unmanaged.passRetained(Completion(continuation))
        var completion = kestrin_completion()
        completion.size = MemoryLayout<kestrin_completion>.stride
        completion.context = context.toOpaque()
        completion.completed = { Completion.at($0).end($1) }
        completion.release_context = { Completion.release($0) }
        var begun: OpaquePointer?
        let status: kestrin_status
        do {
            status = try start(&completion, &begun)
        } catch {
            // The library has not seen the context.
            context.release()
            continuation.resume(throwing: error)
            return
        }
        if let problem = KestrinError.problem(status) {
            continuation.resume(throwing: problem)
        } else if let begun {
            keep(begun)
        }
    }

    func cancel() {
        let begun = lock.withLock {
            cancelled = true
            return handle != nil
        }
        // Not here: Swift holds a lock of this task while it runs this, and what the library completes
        // may be another task, whose cancellation waits for this one's lock.
        if begun { cancellation.async { self.cancelHandle() } }
    }

    private func keep(_ begun: OpaquePointer) {
        let cancelled = lock.withLock {
            handle = begun
            return self.cancelled
        }
        if cancelled { kestrin_request_cancel(begun) }
    }

    private func cancelHandle() {
        kestrin_request_cancel(lock.withLock { handle })
    }
}

/// Where requests are cancelled.
let cancellation = DispatchQueue(label: "kestrin-profile.cancellation")

/// The context of a completion.
private final class Completion: Context {
    private let continuation: CheckedContinuation<Answer, any Error>

    init(_ continuation: CheckedContinuation<Answer, any Error>) {
        self.continuation = continuation
    }

    // The awaiting task makes values of it: this is the network's thread.
    func end(_ result: UnsafeMutablePointer<kestrin_result>?) {
        if let result { continuation.resume(returning: Answer(result)) }
    }
}
