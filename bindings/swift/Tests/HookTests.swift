import Foundation
import KestrinProfile

/// What an application brings, and when it is let go of.
enum HookTests {
    static let all = [
        Test("a transport gets the whole request", wholeRequest),
        Test("a reply keeps its headers and bytes", wholeReply),
        Test("every text arrives as it is", texts),
        Test("a reply that is none fails the request", noReply),
        Test("a bind store gives and keeps binds", bindStore),
        Test("a bind store that fails changes nothing", brokenBindStore),
        Test("a log and its sequences are told of repeats", log),
        Test("a clock of the application's runs the waits", clock),
        Test("a clock that cannot run a task ends the call", brokenClock),
        Test("a session may send once", sendsOnce),
        Test("policies and options have the library's defaults", defaults),
        Test("the library lets go of everything once", releases),
        Test("records hold no token in their texts", noTokens),
        Test("times keep their microseconds", times),
    ]

    @Sendable private static func wholeRequest() async throws {
        let transport = try FakeTransport.keeping()
        let task = Task { try await Profile().addSearchHistory("fox 🦊") }
        let sent = try await transport.waiting.next()
        let request = sent.request
        try equal(ProfileOperation.addSearchHistory.serviceName, request.operation)
        try contains("fox%20%F0%9F%A6%8A", request.url)
        try contains("{", String(decoding: request.body ?? Data(), as: UTF8.self))
        try that(
            request.headers.contains { $0.value.contains("the.kids.token") },
            "the token is in a header")
        try that(!"\(request)".contains("the.kids.token"), "its text holds no secret")
        try that(request.totalTimeout > .zero, "it has a time limit")
        try that(request.maxBodyLength > 0, "it has a limit of the reply")
        sent.finish(204, "")
        try equal(204, try await task.value.status)
    }

    @Sendable private static func wholeReply() async throws {
        let transport = try FakeTransport.keeping()
        let task = Task { try await Profile().clearWatchList() }
        let reply = TransferReply(
            status: 200, headers: [Header(name: "X-Name", value: "value")],
            body: Data([0, 0xFF, 0xC3, 7]))
        try await transport.waiting.next().end(.success(reply))
        let response = try await task.value
        try equal(reply.headers, response.headers)
        try equal(reply.body, response.body)
    }

    @Sendable private static func texts() async throws {
        let transport = try FakeTransport.keeping()
        let text = "\u{0} ß 漢字 👩‍🚀 \u{FFFF}"
        let task = Task { try await Profile().createProfile(User(username: text, avatar: "", group: "g")) }
        let sent = try await transport.waiting.next()
        let body = String(decoding: sent.request.body ?? Data(), as: UTF8.self)
        try contains("ß 漢字 👩‍🚀 \u{FFFF}", body)
        try contains(#"\u0000"#, body)
        sent.finish(
            200,
            "{\"profileId\": \"p\", \"username\": \"\\u0000 ß 漢字 👩‍🚀 \u{FFFF}\", \"avatar\": \"\"}")
        let created = try await task.value
        try equal(text, created.username)
        try equal("", created.avatar)
        try equal(nil, created.group)
    }

    @Sendable private static func noReply() async throws {
        _ = try FakeTransport.answering(7, FakeTransport.emptyList)
        try equal(
            .sling(.malformedReply), try await failure { try await Profile().history() }.reason)
    }

    /// A store that tells of what it is to keep.
    private struct Store: BindStore {
        let kept: HeldBinds
        let saved = Mailbox<HeldBinds>()
        var isLocked = false

        func load() throws -> HeldBinds {
            if isLocked { throw Unexpected(description: "locked") }
            return kept
        }

        func save(_ held: HeldBinds) {
            saved.put(held)
        }
    }

    @Sendable private static func bindStore() async throws {
        _ = try FakeTransport.answering(200, "{}")
        let kept = AnonymousBind(profileID: "kept", token: "a.kept.token")
        let store = Store(kept: HeldBinds(binds: [kept], selectedProfileID: "kept"))
        try ConfigurationManager.setBindStore(store)
        try equal(store.kept, try ConfigurationManager.heldBinds())
        let other = AnonymousBind(profileID: "other", token: "another.token")
        try ConfigurationManager.storeBind(other)
        try equal(
            HeldBinds(binds: [kept, other], selectedProfileID: "kept"),
            try await store.saved.next())
        try ConfigurationManager.selectProfile("other")
        try equal("other", try await store.saved.next().selectedProfileID)
        try ConfigurationManager.dropBinds()
        try equal([], try await store.saved.next().binds)
        try ConfigurationManager.setBindStore(nil)
    }

    @Sendable private static func brokenBindStore() async throws {
        _ = try FakeTransport.answering(200, "{}")
        let before = try ConfigurationManager.heldBinds()
        do {
            try ConfigurationManager.setBindStore(Store(kept: HeldBinds(), isLocked: true))
            throw CancellationError()
        } catch is Unexpected {}
        try equal(before, try ConfigurationManager.heldBinds())
    }

    private static func impatient() -> RetryPolicy {
        var policy = RetryPolicy()
        policy.maxAttempts = 3
        policy.firstDelay = .milliseconds(1)
        policy.longestDelay = .milliseconds(1)
        policy.budget = RetryPolicy.Budget(share: 0, atStart: 9, atMost: 9)
        return policy
    }

    @Sendable private static func log() async throws {
        let transport = try FakeTransport.answering(503, "{}")
        let told = Shared<[HouseholdEvent]>([])
        let options = HouseholdOptions(retry: impatient()) { event in
            told.change { $0.append(event) }
        }
        let household = try Household(options: options)
        let first = household.events()
        let second = household.events()
        let leaving = Task { for await _ in household.events() {} }
        leaving.cancel()
        await leaving.value
        let error = try await failure { try await household.session("kid").history() }
        try equal(503, error.status)
        try equal(3, transport.count.value)
        household.close()
        for events in [first, second] {
            var each: [HouseholdEvent] = []
            for await event in events { each.append(event) }
            try equal([.repeat, .repeat, .givenUp], each.map(\.kind))
            try equal([2, 3, 3], each.map(\.attempt))
            try equal(.getHistory, each[0].operation)
            try equal("503", each[0].reason)
            try equal(each, told.value)
        }
    }

    /// A clock that stands still until the test lets time pass.
    private final class StandingClock: HouseholdClock {
        let tasks = Mailbox<(ClockTask, Duration)>()
        let now = Shared(Duration.zero)
        let broken: Bool

        init(broken: Bool = false) {
            self.broken = broken
        }

        var steady: Duration { now.value }
        var wall: Date { Date(timeIntervalSince1970: 1_700_000_000) }

        func run(_ task: ClockTask, id: UInt64, after delay: Duration) -> Bool {
            if broken { return false }
            tasks.put((task, delay))
            return true
        }
    }

    @Sendable private static func clock() async throws {
        let transport = try FakeTransport.keeping()
        let clock = StandingClock()
        let household = try Household(options: HouseholdOptions(clock: clock))
        let kid = try household.session("kid")
        let task = Task { try await kid.history() }
        try await transport.waiting.next().finish(503, "{}")
        // The deadline of the call and the wait before the repeat.
        let limit = RetryPolicy()
        var delay = Duration.zero
        var waits: ClockTask?
        while waits == nil {
            let (task, after) = try await clock.tasks.next()
            if after <= limit.firstDelay { (waits, delay) = (task, after) }
        }
        try equal(1, transport.count.value)
        clock.now.change { $0 += delay }
        waits?.run()
        waits?.run()
        try await transport.waiting.next().finish(200, FakeTransport.emptyList)
        try equal([], try await task.value.elements)
    }

    @Sendable private static func brokenClock() async throws {
        _ = try FakeTransport.answering(503, "{}")
        let options = HouseholdOptions(clock: StandingClock(broken: true))
        let kid = try Household(options: options).session("kid")
        do {
            _ = try await kid.history()
            throw Unexpected(description: "it has an answer")
        } catch is KestrinError {
        } catch is CancellationError {}
    }

    @Sendable private static func sendsOnce() async throws {
        let transport = try FakeTransport.answering(503, "{}")
        let options = SessionOptions(profileID: "kid", withoutRepeats: true)
        let kid = try Household().session(options: options)
        try equal(503, try await failure { try await kid.history() }.status)
        try equal(1, transport.count.value)
    }

    @Sendable private static func defaults() async throws {
        let policy = RetryPolicy()
        try equal(4, policy.maxAttempts)
        try equal(.seconds(60), policy.deadline)
        try equal([429, 502, 503, 504], policy.statuses)
        try that(policy.idempotentMethods.contains("PUT"), "PUT is idempotent")
        try that(policy.unsentErrors.contains(.cannotConnect), "nothing of it was sent")
        try equal(1, RetryPolicy.never.maxAttempts)
        try equal(10_000, OutboxOptions().maxEntries)
        try equal(.seconds(30 * 24 * 3600), OutboxOptions().maxAge)
        try that(!ConfigurationManager.version.isEmpty, "there is a version")
        try equal("personalization-history-get", ProfileOperation.getHistory.serviceName)
        try equal(22, ProfileOperation.allCases.count)
    }

    @Sendable private static func releases() async throws {
        let things = try await used()
        try ConfigurationManager.setTransport(nil)
        try ConfigurationManager.setBindStore(nil)
        for (name, thing) in things {
            // Another thread may be about to let go of it.
            await until { !thing.isAlive }
            _ = name
        }
    }

    private static func used() async throws -> [(String, Watched)] {
        let transport = try FakeTransport.answering(503, "{}")
        let clock = StandingClock()
        let log = Shared(0)
        let failed = Shared(0)
        let household = try Household(
            options: HouseholdOptions(retry: .never, clock: clock) { _ in log.change { $0 += 1 } })
        let outbox = try household.openOutbox()
        let events = outbox.events()
        let reporter = try household.reporter(
            options: ReporterOptions(profileID: "kid", videoID: "v") { _ in
                failed.change { $0 += 1 }
            })
        _ = try await failure { try await household.session("kid").history() }
        let first = Watched(reporter)
        _ = events
        return [
            ("transport", Watched(transport)), ("clock", Watched(clock)), ("log", Watched(log)),
            ("failed", Watched(failed)), ("household", Watched(household)),
            ("outbox", Watched(outbox)), ("reporter", first),
        ]
    }

    @Sendable private static func noTokens() async throws {
        let bind = AnonymousBind(profileID: "p", token: "the.secret")
        let held = HeldBinds(binds: [bind], selectedProfileID: "p")
        var dumped = ""
        dump(held, to: &dumped)
        dump(Profile(bind: bind), to: &dumped)
        for text in ["\(bind)", String(reflecting: bind), "\(held)", "\(Profile(bind: bind))", dumped] {
            try that(!text.contains("the.secret"), "'\(text)' shows no token")
            try contains("p", text)
        }
    }

    @Sendable private static func times() async throws {
        let transport = try FakeTransport.keeping()
        for text in ["2017-03-09T18:25:43.511Z", "1969-12-31T23:59:59.999Z", "2262-01-01T00:00:00.001Z"] {
            let task = Task { try await Profile().watchList() }
            try await transport.waiting.next().finish(
                200, #"{"elements": [{"id": "v", "autoAddTimestamp": "\#(text)"}]}"#)
            let date = try await task.value.elements?.first?.autoAddTimestamp
            let format = ISO8601DateFormatter()
            format.formatOptions = [.withInternetDateTime, .withFractionalSeconds]
            try equal(text, date.map { format.string(from: $0) })
        }
    }
}
