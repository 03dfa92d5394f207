import CKestrinProfile
import Foundation

/// The transfers of a transport that have not ended, each a task.
final class TransportHooks: Context, @unchecked Sendable {
    private let transport: any Transport
    private let lock = NSLock()
    private var open: [UInt64: Task<Void, Never>] = [:]

    private init(_ transport: any Transport) {
        self.transport = transport
    }

    static func view(of transport: any Transport) -> kestrin_transport {
        var view = kestrin_transport()
        view.size = MemoryLayout<kestrin_transport>.stride
        view.context = TransportHooks(transport).retained()
        view.send = { context, request, transfer in
            guard let request = request?.pointee, let transfer else { return }
            TransportHooks.at(context).send(
                request.id, TransferRequest(request), Transfer(transfer))
        }
        view.cancel = { TransportHooks.at($0).cancel($1) }
        view.release_context = { TransportHooks.release($0) }
        return view
    }

    private func send(_ id: UInt64, _ request: TransferRequest, _ transfer: Transfer) {
        // With the lock: the end of the task is not to come before it is kept.
        lock.withLock {
            open[id] = Task.detached {
                do {
                    transfer.finish(try await self.transport.send(request))
                } catch {
                    transfer.fail(error)
                }
                self.ended(id)
            }
        }
    }

    private func cancel(_ id: UInt64) {
        lock.withLock { open[id] }?.cancel()
    }

    private func ended(_ id: UInt64) {
        _ = lock.withLock { open.removeValue(forKey: id) }
    }
}

/// A transfer, ended once by the task that it was handed to.
private final class Transfer: @unchecked Sendable {
    private let pointer: OpaquePointer

    init(_ pointer: OpaquePointer) {
        self.pointer = pointer
    }

    func finish(_ reply: TransferReply) {
        CallMemory.with { memory in
            var view = kestrin_transfer_reply()
            view.size = MemoryLayout<kestrin_transfer_reply>.stride
            view.status = Int32(clamping: reply.status)
            view.headers = Header.view(of: reply.headers, in: memory)
            view.body = memory.bytes(reply.body)
            view.effective_url = memory.text(reply.effectiveURL)
            // A reply that is refused fails the request; the application hears of it there.
            _ = kestrin_transfer_finish(pointer, &view)
        }
    }

    func fail(_ error: any Error) {
        let failure = Self.failure(error)
        CallMemory.with { memory in
            _ = kestrin_transfer_fail(
                pointer, failure.kind.rawValue, memory.text(failure.message))
        }
    }

    private static func failure(_ error: any Error) -> TransferFailure {
        switch error {
        // An error without a reply has neither a status nor a number that nobody knows.
        case let failure as TransferFailure
        where failure.kind != .httpStatus && failure.kind != .unknown:
            failure
        case is CancellationError: TransferFailure(.cancelled)
        // Something may have been sent before. Its text may hold a secret.
        default: TransferFailure(.connectionLost, "the transport threw \(type(of: error))")
        }
    }
}
