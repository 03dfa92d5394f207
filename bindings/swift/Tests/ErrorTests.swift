import Foundation
import KestrinProfile

/// Every way in which something can go wrong arrives as what it is.
enum ErrorTests {
    static let all = [
        Test("an error status has the problem document", statusIsAnError),
        Test("what goes wrong on the way keeps its kind", kindsAreKept),
        Test("a transport that throws anything else is an error without its text", otherErrors),
        Test("a transfer that the transport ends is cancelled", transportCancels),
        Test("the operations have errors of their own", operationsErrors),
        Test("without a configuration nothing is sent", noConfiguration),
        Test("a configuration with problems is refused with all of them", brokenConfiguration),
        Test("what an operation cannot do with is refused before it is sent", badParameters),
        Test("a bind that no header may carry is refused", badBind),
        Test("what was closed is used no more", closed),
        Test("a full outbox says so", fullOutbox),
        Test("a write that is none is refused", badWrite),
        Test("a policy that is none is refused", badPolicy),
    ]

    @Sendable private static func statusIsAnError() async throws {
        _ = try FakeTransport.answering(
            422, #"{"type": "about:full", "title": "Full", "detail": "There are ten."}"#)
        let error = try await failure { try await Profile().watchList() }
        try equal(.sling(.httpStatus), error.reason)
        try equal(422, error.status)
        try equal("HalvardSling.SlingError", error.domain)
        try equal(.mendInput, error.notice)
        try that(!error.advice.isEmpty, "there is an advice")
        try equal(error.advice, error.recoverySuggestion)
        try that(!error.requestID.isEmpty, "there is a request identifier")
        try that(error.localizedDescription == error.message, "the message is what is described")
    }

    @Sendable private static func kindsAreKept() async throws {
        // The status comes with a reply; the transport's end is no error.
        for kind in SlingErrorKind.allCases
        where kind != .httpStatus && kind != .cancelled && kind != .unknown {
            _ = try FakeTransport.failing(TransferFailure(kind, "it broke"))
            let error = try await failure { try await Profile().history() }
            try equal(.sling(kind), error.reason)
            try equal(0, error.status)
            try contains("it broke", error.message)
        }
    }

    @Sendable private static func otherErrors() async throws {
        _ = try FakeTransport.failing(Unexpected(description: "a secret"))
        let error = try await failure { try await Profile().history() }
        try equal(.sling(.connectionLost), error.reason)
        try contains("Unexpected", error.message)
        try that(!error.message.contains("a secret"), "the message has no text of others")
    }

    @Sendable private static func transportCancels() async throws {
        _ = try FakeTransport.failing(TransferFailure(.cancelled))
        try await cancelled { try await Profile().history() }
        _ = try FakeTransport.failing(CancellationError())
        try await cancelled { try await Profile().history() }
    }

    @Sendable private static func operationsErrors() async throws {
        _ = try FakeTransport.answering(200, "{}")
        try equal(
            .profile(.userSerializationError),
            try await failure { try await Profile().profiles() }.reason)
        try equal(
            .profile(.userInvalidForOperation),
            try await failure { try await Profile().editProfile(User(username: "a")) }.reason)
        try equal(
            .profile(.parentInvalidForOperation),
            try await failure { try await Profile().deleteProfile("parent") }.reason)
    }

    @Sendable private static func noConfiguration() async throws {
        let transport = try FakeTransport.answering(200, "{}")
        try ConfigurationManager.removeConfiguration()
        let error = try await failure { try await Profile().history() }
        try equal(.configuration(.serviceNotConfigured), error.reason)
        try equal(0, transport.count.value)
    }

    @Sendable private static func brokenConfiguration() async throws {
        let error = try await failure {
            try ConfigurationManager.configure(#"{"version": 1, "servces": {}}"#)
        }
        try equal(.invalidCall(.invalidArgument), error.reason)
        try contains("servces", error.message)
        try that(!error.advice.isEmpty, "there is an advice")
    }

    @Sendable private static func badParameters() async throws {
        let transport = try FakeTransport.answering(200, "{}")
        let error = try await failure {
            try await Profile().addHistoryVideo("v", progress: .milliseconds(-1))
        }
        try equal(.configuration(.invalidParameters), error.reason)
        try equal(0, transport.count.value)
    }

    @Sendable private static func badBind() async throws {
        _ = try FakeTransport.answering(200, "{}")
        let bind = AnonymousBind(profileID: "p", token: "a\nb")
        let error = try await failure { try await Profile(bind: bind).history() }
        try equal(.sling(.forbiddenHeader), error.reason)
        try that(!error.message.contains("a\nb"), "the message shows no token")
    }

    @Sendable private static func closed() async throws {
        _ = try FakeTransport.answering(200, FakeTransport.emptyList)
        let household = try Household()
        let session = try household.session()
        let outbox = try household.openOutbox()
        let reporter = try household.reporter(
            options: ReporterOptions(profileID: "kid", videoID: "v"))
        reporter.close()
        reporter.position(.seconds(1))
        outbox.close()
        outbox.close()
        try contains("outbox", try await failure { try outbox.entries() }.message)
        try equal(.invalidCall(.closed), try await failure { try await outbox.settled() }.reason)
        try equal(
            .invalidCall(.closed),
            try await failure { try await session.later(outbox).clearHistory() }.reason)
        for await event in outbox.events() {
            throw Unexpected(description: "a closed outbox tells \(event)")
        }
        household.close()
        household.close()
        try equal(.invalidCall(.closed), try await failure { try household.session() }.reason)
        try equal(.invalidCall(.closed), try await failure { try await household.warmUp() }.reason)
        for await event in household.events() {
            throw Unexpected(description: "a closed household tells \(event)")
        }
        try await cancelled { try await session.history() }
    }

    @Sendable private static func fullOutbox() async throws {
        _ = try FakeTransport.keeping()
        var options = OutboxOptions()
        options.maxEntries = 1
        let household = try Household()
        let outbox = try household.openOutbox(options: options)
        let kid = try household.session("kid").later(outbox)
        try await kid.addWatchListVideo("v1")
        let error = try await failure { try await kid.addWatchListVideo("v2") }
        try equal(.outbox(.full), error.reason)
        options.maxEntries = -1
        let none = options
        try equal(
            .invalidCall(.invalidArgument),
            try await failure { try household.openOutbox(options: none) }.reason)
    }

    @Sendable private static func badWrite() async throws {
        _ = try FakeTransport.keeping()
        let outbox = try Household().openOutbox()
        let error = try await failure {
            try await outbox.add(OutboxWrite(profileID: "kid", operation: .getHistory))
        }
        switch error.reason {
        case .outbox(.invalidWrite), .invalidCall(.invalidArgument): break
        default: throw Unexpected(description: "\(error.domain) \(error.code): \(error)")
        }
    }

    @Sendable private static func badPolicy() async throws {
        var policy = RetryPolicy()
        policy.deadline = .milliseconds(-1)
        let options = HouseholdOptions(retry: policy)
        try equal(
            .invalidCall(.invalidArgument),
            try await failure { try Household(options: options) }.reason)
    }
}
