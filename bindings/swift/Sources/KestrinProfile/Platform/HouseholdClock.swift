import CKestrinProfile
import Foundation

/// The time and the timers that a ``Household`` uses in the place of the system's. Its functions are
/// called while the library holds a lock: they must neither block nor use the library.
public protocol HouseholdClock: Sendable {
    /// Since some moment; it never goes back.
    var steady: Duration { get }

    /// It may jump.
    var wall: Date { get }

    /// Arranges for the task to run, one time, after the delay (0 or more), on any thread, but not
    /// inside this call; tasks run in the order in which they are due.
    ///
    /// - Parameter id: names the task for ``cancel(_:)``; never used twice
    /// - Returns: false if that could not be done
    func run(_ task: ClockTask, id: UInt64, after delay: Duration) -> Bool

    /// The task need not run any more. It may be run or let go of all the same.
    func cancel(_ id: UInt64)
}

extension HouseholdClock {
    /// Does nothing.
    public func cancel(_ id: UInt64) {}
}

/// What a ``HouseholdClock`` is to run. Let go of without, it never runs.
public final class ClockTask: @unchecked Sendable {
    private let lock = NSLock()
    private var pointer: OpaquePointer?

    init(_ pointer: OpaquePointer) {
        self.pointer = pointer
    }

    deinit {
        if let pointer { kestrin_task_drop(pointer) }
    }

    /// Runs it, on this thread; the second time it does nothing.
    public func run() {
        if let task = take() { kestrin_task_run(task) }
    }

    func take() -> OpaquePointer? {
        lock.withLock {
            defer { pointer = nil }
            return pointer
        }
    }
}

/// A clock as the library sees it.
final class ClockHooks: Context {
    private let clock: any HouseholdClock

    private init(_ clock: any HouseholdClock) {
        self.clock = clock
    }

    static func view(of clock: any HouseholdClock) -> kestrin_clock {
        var view = kestrin_clock()
        view.size = MemoryLayout<kestrin_clock>.stride
        view.context = ClockHooks(clock).retained()
        view.steady_ns = { ClockHooks.at($0).clock.steady.nanoseconds }
        view.wall_ms = { ClockHooks.at($0).clock.wall.microsecondsSince1970 / 1000 }
        view.after = { context, id, delay, task in
            guard let task else { return false }
            return ClockHooks.at(context).after(id, .nanoseconds(delay), ClockTask(task))
        }
        view.cancel = { ClockHooks.at($0).clock.cancel($1) }
        view.release_context = { ClockHooks.release($0) }
        return view
    }

    private func after(_ id: UInt64, _ delay: Duration, _ task: ClockTask) -> Bool {
        if clock.run(task, id: id, after: delay) { return true }
        // The library has it again, unless it was run all the same.
        return task.take() == nil
    }
}
