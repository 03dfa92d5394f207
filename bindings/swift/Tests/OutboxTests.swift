import Foundation
import KestrinProfile

/// Writes that are kept, and the playback reporter.
enum OutboxTests {
    static let all = [
        Test("kept writes reach the service in their order", reachTheService),
        Test("a service that goes away gets everything once it is back", serviceGoesAway),
        Test("writes outlive the outbox in its file", outliveTheOutbox),
        Test("what the service refuses is kept with the reason", refused),
        Test("whoever stops listening leaves the others listening", listeners),
        Test("a keep that is cancelled ends", cancelledKeep),
        Test("a reporter writes where somebody stopped", reporterWrites),
        Test("a reporter tells of what was not taken", reporterFails),
        Test("a reporter's writes are kept", reporterKeeps),
    ]

    private static func next(
        _ events: inout AsyncStream<OutboxEvent>.Iterator
    ) async throws -> OutboxEvent {
        guard let event = await events.next() else {
            throw Unexpected(description: "the events have ended")
        }
        return event
    }

    @Sendable private static func reachTheService() async throws {
        let service = try Service.fresh()
        defer { service.stop() }
        let household = try Household()
        let parent = try household.session()
        let outbox = try household.openOutbox(
            options: OutboxOptions(file: service.file("ö outbox")))
        var events = outbox.events().makeAsyncIterator()
        let found = try await outbox.opening()
        try equal(0, found.waiting)
        try equal([], found.warnings)
        let later = parent.later(outbox)
        let kept = [
            try await later.addWatchListVideo("v1"),
            try await later.addHistoryVideo("v2", progress: .seconds(7), isComplete: true),
            try await later.addFavoriteShows([.show("s")]),
            try await later.addSearchHistory("kept 🦊"),
        ]
        try equal(.addHistoryVideo, kept[1].write?.operation)
        try equal(.seconds(7), kept[1].write?.progress)
        try equal("s", kept[2].write?.shows.first?.id)
        try equal("kept 🦊", kept[3].write?.itemID)
        for each in kept {
            let event = try await next(&events)
            try equal(.sent, event.kind)
            try equal(each.write, event.entry?.write)
            try equal(each.number, event.entry?.number)
        }
        try equal(0, try await outbox.settled().waiting)
        try equal(1, try await parent.watchList().elements?.count)
        try equal(1, try await parent.favorites().elements?.count)
        try equal(true, try await parent.history().elements?.first?.isCompleted)
        outbox.close()
        let last = await events.next()
        try equal(nil, last)
    }

    @Sendable private static func serviceGoesAway() async throws {
        let service = try Service.fresh()
        defer { service.stop() }
        let household = try Household(options: HouseholdOptions(retry: .never))
        let parent = try household.session()
        let bind = try await parent.bind()
        let outbox = try household.openOutbox(options: OutboxOptions(file: service.file("outbox")))
        var events = outbox.events().makeAsyncIterator()
        service.stop()

        let reporter = try household.reporter(
            options: ReporterOptions(
                profileID: bind.profileID, brandID: "kestrin", videoID: "film", outbox: outbox))
        reporter.position(.seconds(42))
        reporter.paused()
        try await until { try !outbox.entries().isEmpty }
        try await parent.later(outbox).addFavoriteShow("s1")
        try await parent.later(outbox).addWatchListVideo("v1")
        try equal(.delayed, try await next(&events).kind)
        let error = try await failure { try await parent.history() }
        try equal(.sling(.cannotConnect), error.reason)
        try equal(.serviceDown, error.notice)
        try equal(3, try outbox.entries().count)

        try service.start()
        try outbox.networkIsBack()
        var sent: [ProfileOperation?] = []
        while sent.count < 3 {
            let event = try await next(&events)
            if event.kind == .delayed { continue }
            try equal(.sent, event.kind)
            sent.append(event.entry?.write?.operation)
        }
        try equal([.addHistoryVideo, .addFavoriteShow, .addWatchListVideo], sent)
        try equal(.seconds(42), try await parent.history().elements?.first?.progress)
        try equal("s1", try await parent.favorites().elements?.first?.id)
        try equal("v1", try await parent.watchList().elements?.first?.id)
        try equal(0, try await outbox.settled().waiting)
    }

    @Sendable private static func outliveTheOutbox() async throws {
        let service = try Service.fresh()
        defer { service.stop() }
        let file = service.file("outbox")
        let options = OutboxOptions(file: file)
        let write = OutboxWrite(
            profileID: "kid", operation: .addWatchListVideo, itemID: "v1")
        var other = write
        other.itemID = "v2"
        _ = try FakeTransport.keeping()
        do {
            let outbox = try Household().openOutbox(options: options)
            try await outbox.add(write)
            let dropped = try await outbox.add(other).number
            try equal(2, try outbox.entries().count)
            try equal(true, try await outbox.drop(dropped))
            try equal(false, try await outbox.drop(dropped))
            try equal([], try outbox.refused())
            outbox.close()
        }
        let outbox = try Household().openOutbox(options: options)
        try equal(1, try await outbox.opening().waiting)
        let entry = try outbox.entries().first
        try equal(write, entry?.write)
        let age = Date().timeIntervalSince(entry?.acceptedAt ?? .distantPast)
        try that(abs(age) < 3600, "it says when it was accepted: \(age)")
    }

    @Sendable private static func refused() async throws {
        _ = try FakeTransport.answering(422, #"{"title": "No such video"}"#)
        let outbox = try Household().openOutbox()
        var events = outbox.events().makeAsyncIterator()
        try await outbox.add(
            OutboxWrite(profileID: "kid", operation: .addWatchListVideo, itemID: "v1"))
        let event = try await next(&events)
        try equal(.refused, event.kind)
        try equal(422, event.entry?.refusal?.status)
        try equal(1, try outbox.refused().count)
        try outbox.networkIsBack()
        try outbox.bindIsNew("kid")
    }

    @Sendable private static func listeners() async throws {
        _ = try FakeTransport.answering(200, "{}")
        let outbox = try Household().openOutbox()
        let write = OutboxWrite(profileID: "kid", operation: .clearHistory)
        var stays = outbox.events().makeAsyncIterator()
        for _ in 0..<50 {
            let leaves = outbox.events()
            let listening = Task { for await _ in leaves {} }
            listening.cancel()
            await listening.value
            let sent = try await outbox.add(write).number
            try equal(sent, try await next(&stays).entry?.number)
        }
    }

    @Sendable private static func cancelledKeep() async throws {
        _ = try FakeTransport.keeping()
        let outbox = try Household().openOutbox()
        try await outbox.opening()
        let write = OutboxWrite(profileID: "kid", operation: .addWatchListVideo, itemID: "v")
        for _ in 0..<200 {
            let adding = Task { try await outbox.add(write) }
            adding.cancel()
            do {
                _ = try await adding.value
            } catch is CancellationError {}
        }
        try that(try outbox.entries().count <= 1, "one is sent, and replaces what waits")
        outbox.close()
    }

    @Sendable private static func reporterWrites() async throws {
        let transport = try FakeTransport.keeping()
        let household = try Household()
        let reporter = try household.reporter(
            options: ReporterOptions(profileID: "kid", videoID: "film"))
        reporter.position(nil)
        reporter.position(.seconds(42))
        reporter.position(.nanoseconds(-1))
        reporter.paused()
        let sent = try await transport.waiting.next()
        try equal(ProfileOperation.addHistoryVideo.serviceName, sent.request.operation)
        try contains("42", String(decoding: sent.request.body ?? Data(), as: UTF8.self))
        sent.finish(200, "{}")
    }

    @Sendable private static func reporterFails() async throws {
        _ = try FakeTransport.answering(422, "{}")
        let problems = Mailbox<KestrinError>()
        let household = try Household(options: HouseholdOptions(retry: .never))
        let reporter = try household.reporter(
            options: ReporterOptions(profileID: "kid", videoID: "film") { problems.put($0) })
        reporter.moved(.seconds(3))
        reporter.inBackground()
        try equal(422, try await problems.next().status)
        reporter.finished()
    }

    @Sendable private static func reporterKeeps() async throws {
        _ = try FakeTransport.keeping()
        let household = try Household()
        let outbox = try household.openOutbox()
        do {
            let reporter = try household.reporter(
                options: ReporterOptions(profileID: "kid", videoID: "film", outbox: outbox))
            reporter.position(.seconds(5))
        }
        try await until { try !outbox.entries().isEmpty }
        try equal("film", try outbox.entries().first?.write?.itemID)
    }
}
