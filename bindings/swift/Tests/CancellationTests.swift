import Foundation
import KestrinProfile

/// Who cancels a task ends what is under way for it.
enum CancellationTests {
    static let all = [
        Test("cancel reaches the transfer", reachesTheTransfer),
        Test("a task that was cancelled before sends nothing", cancelledBefore),
        Test("a group that is cancelled cancels what it awaits", groups),
        Test("a household that is closed cancels its requests", householdCloses),
        Test("a request keeps its household and session", requestKeeps),
        Test("each request ends once, whoever is first", races),
        Test("calls that wait for one bind are cancelled one by one", sharedBind),
        Test("households may be closed while tasks use them", closedWhileUsed),
    ]

    @Sendable private static func reachesTheTransfer() async throws {
        let transport = try FakeTransport.keeping()
        let task = Task { try await Profile().history() }
        let sent = try await transport.waiting.next()
        task.cancel()
        try equal(sent.request, try await transport.cancelled.next())
        try await cancelled { try await task.value }
    }

    @Sendable private static func cancelledBefore() async throws {
        let transport = try FakeTransport.keeping()
        let task = Task {
            withUnsafeCurrentTask { $0?.cancel() }
            return try await Profile().history()
        }
        try await cancelled { try await task.value }
        try equal(0, transport.count.value)
    }

    @Sendable private static func groups() async throws {
        let transport = try FakeTransport.keeping()
        try await withThrowingTaskGroup(of: UserProfile.self) { group in
            group.addTask { try await Profile().history() }
            group.addTask { try await Profile().favorites() }
            _ = try await transport.waiting.next()
            _ = try await transport.waiting.next()
            group.cancelAll()
            _ = try await transport.cancelled.next()
            _ = try await transport.cancelled.next()
            for _ in 1...2 { try await cancelled { try await group.next() } }
        }
    }

    @Sendable private static func householdCloses() async throws {
        let transport = try FakeTransport.keeping()
        let household = try Household()
        let session = try household.session("kid")
        let task = Task { try await session.history() }
        _ = try await transport.waiting.next()
        household.close()
        try await cancelled { try await task.value }
        try await cancelled { try await session.history() }
    }

    @Sendable private static func requestKeeps() async throws {
        let transport = try FakeTransport.keeping()
        let task = Task { try await Household().session("kid").history() }
        try await transport.waiting.next().finish(200, FakeTransport.emptyList)
        try equal([], try await task.value.elements)
    }

    /// Reply and cancellation at once, again and again.
    @Sendable private static func races() async throws {
        let rounds = 2000
        let transport = try FakeTransport.keeping()
        let answering = Task.detached {
            // A request that was cancelled early was perhaps never sent.
            while !Task.isCancelled {
                try await transport.waiting.next().finish(200, FakeTransport.emptyList)
            }
        }
        let answered = try await withThrowingTaskGroup(of: Bool.self) { group in
            for round in 0..<rounds {
                group.addTask {
                    let list = Task { try await Profile().history() }
                    if round % 3 == 1 { await Task.yield() }
                    if round % 3 != 0 { list.cancel() }
                    do {
                        return try await list.value.elements == []
                    } catch is CancellationError {
                        try that(round % 3 != 0, "somebody has cancelled it")
                        return false
                    }
                }
            }
            return try await group.reduce(0) { $1 ? $0 + 1 : $0 }
        }
        try that(answered >= rounds / 3, "\(answered) were answered: all that nobody cancels")
        answering.cancel()
        _ = try? await answering.value
    }

    /// One task's end completes others; tasks are cancelled on many threads at once.
    @Sendable private static func sharedBind() async throws {
        for _ in 0..<100 {
            let transport = try FakeTransport.keeping()
            try ConfigurationManager.dropBinds()
            let household = try Household()
            let session = try household.session("kid")
            let tasks = (0..<8).map { _ in Task { try await session.history() } }
            _ = try await transport.waiting.next()
            await withTaskGroup(of: Void.self) { group in
                for task in tasks { group.addTask { task.cancel() } }
                group.addTask { household.close() }
            }
            for task in tasks { try await cancelled { try await task.value } }
        }
    }

    @Sendable private static func closedWhileUsed() async throws {
        _ = try FakeTransport.answering(200, FakeTransport.emptyList)
        for _ in 0..<50 {
            let household = try Household()
            let session = try household.session("kid")
            let begun = Mailbox<Void>()
            try await withThrowingTaskGroup(of: Void.self) { group in
                for _ in 0..<2 {
                    group.addTask {
                        for call in 0..<20 {
                            do {
                                try equal([], try await session.history().elements)
                            } catch is CancellationError {}
                            if call == 2 { begun.put(()) }
                        }
                    }
                }
                try await begun.next()
                household.close()
                try await group.waitForAll()
            }
        }
    }
}
