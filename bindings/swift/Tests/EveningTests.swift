import Foundation
import KestrinProfile

/// A household's evening, against the development service.
enum EveningTests {
    static let all = [
        Test("a household spends its evening") { try await evening(over: nil) },
        Test("the same evening over URLSession") { try await evening(over: URLSessionTransport()) },
        Test("a session does all 22 operations", sessionDoesAll),
        Test("plain operations use the bind that they are given", plainOperations),
    ]

    private static func ids(_ list: UserProfile) -> [String?] {
        list.elements?.map(\.id) ?? [nil]
    }

    @Sendable private static func evening(over transport: (any Transport)?) async throws {
        let service = try Service.fresh(transport)
        defer { service.stop() }
        let household = try Household()
        let parent = try household.session()
        // What an application brings does not warm up.
        if transport == nil { try equal(1, try await household.warmUp()) }
        try ok(try await parent.validateProfileName("Ännchen 🦊"))
        let anna = try await parent.createProfile(
            User(username: "Ännchen 🦊", avatar: "fox", group: "kids"))
        let ben = try await parent.createProfile(
            User(username: "Ben", avatar: "bear", group: "kids"))
        try equal("Ännchen 🦊", anna.username)
        try equal(3, try await parent.profiles().count)
        guard let annaID = anna.profileID, let benID = ben.profileID else {
            throw Unexpected(description: "the service gives no identifier")
        }
        try await watch(household.session(annaID), household.session(benID))

        try ok(
            try await parent.editProfile(
                User(profileID: benID, username: "Ben the Elder", avatar: "bear", group: "kids")))
        let names = try await parent.profiles().map(\.username)
        try that(names.contains("Ben the Elder"), "\(names) has the new name")
        try ok(try await parent.deleteProfile(annaID))
        try ok(try await parent.deleteProfile(benID))
        try equal(1, try await parent.profiles().count)
    }

    private static func watch(_ kid: ProfileSession, _ other: ProfileSession) async throws {
        try ok(try await kid.addHistoryVideo("v1", progress: .seconds(90)))
        try ok(try await kid.addHistoryVideo("v2", progress: .seconds(1800), isComplete: true))
        let history = try await kid.history()
        try equal(["v2", "v1"], ids(history))
        try equal(.seconds(1800), history.elements?.first?.progress)
        try equal(true, history.elements?.first?.isCompleted)
        try equal(["v1"], ids(try await kid.videoHistory("v1")))
        try equal([], ids(try await other.history()))

        try ok(try await other.addFavoriteShow("s1"))
        try ok(try await other.addFavoriteShows([.show("s2"), .show("s3")]))
        let favorites = try await other.favorites()
        try equal(3, favorites.elements?.count)
        try equal("SHOW", favorites.elements?.first?.type)
        try ok(try await other.addWatchListVideo("v7"))
        let added = try await other.watchList().elements?.first
        try equal("v7", added?.id)
        let age = added?.autoAddTimestamp.map { Date().timeIntervalSince($0) }
        try that(abs(age ?? .infinity) < 3600, "the service says when it was added: \(age ?? 0)")
    }

    @Sendable private static func sessionDoesAll() async throws {
        let service = try Service.fresh()
        defer { service.stop() }
        let session = try Household().session()
        let bind = try await session.bind()
        try that(!"\(bind)".contains(bind.token), "a record shows no token")
        try ok(try await session.validateProfileName("Cleo"))
        let user = try await session.createProfile(
            User(username: "Cleo", avatar: "cat", group: "kids"))
        try equal(2, try await session.profiles().count)
        let edited = User(
            profileID: user.profileID, username: "Cleo", avatar: "owl", group: "kids",
            defaultUser: true)
        try ok(try await session.editProfile(edited))
        try that(try await session.profiles().contains(edited), "it is listed as it was changed")
        try ok(try await session.deleteProfile(user.profileID ?? ""))
        try await changeLists(session)
    }

    @Sendable private static func plainOperations() async throws {
        let service = try Service.fresh()
        defer { service.stop() }
        let bind = try await Profile().bind()
        try equal(bind.profileID, try ConfigurationManager.heldBinds().selectedProfileID)
        let bound = Profile(bind: bind)
        try ok(try await bound.validateProfileName("Dora"))
        let user = try await bound.createProfile(
            User(username: "Dora", avatar: "dog", group: "kids"))
        try equal(2, try await bound.profiles().count)
        try ok(
            try await bound.editProfile(
                User(profileID: user.profileID, username: "Dora", avatar: "ant", group: "kids")))
        let doras = try await Profile(profileID: user.profileID).bind()
        try equal(user.profileID, doras.profileID)
        let dora = Profile(bind: doras)
        try await changeLists(dora)
        try ok(try await dora.addWatchListVideo("hers"))
        try equal(0, try await bound.watchList().elements?.count)
        try ok(try await bound.deleteProfile(user.profileID ?? ""))

        let wrong = AnonymousBind(profileID: bind.profileID, token: "no.such.token")
        let refused = try await failure { try await Profile(bind: wrong).history() }
        try equal(.sling(.httpStatus), refused.reason)
        try equal(403, refused.status)
        try that(!"\(refused)".contains("no.such.token"), "an error shows no token")
        try that(!refused.requestID.isEmpty, "an error says what the request is known by")
        try that(!refused.problemTitle.isEmpty, "an error has the reply's problem document")
    }

    private static func changeLists(_ profile: some ProfileOperations) async throws {
        try ok(try await profile.addHistoryVideo("v", progress: .zero, isComplete: false))
        try equal(["v"], ids(try await profile.history()))
        try equal(["v"], ids(try await profile.videoHistory("v")))
        try ok(try await profile.deleteVideoHistory("v"))
        try equal([], ids(try await profile.history()))
        try ok(try await profile.addHistoryVideo("w", progress: .seconds(3)))
        try ok(try await profile.clearHistory())
        try equal([], ids(try await profile.history()))
        try ok(try await profile.addFavoriteShow("s"))
        try ok(try await profile.addFavoriteShows([.show("t")]))
        try equal(2, try await profile.favorites().elements?.count)
        try ok(try await profile.deleteFavoriteShow("s"))
        try equal(["t"], ids(try await profile.favorites()))
        try ok(try await profile.clearFavorites())
        try equal([], ids(try await profile.favorites()))
        try ok(try await profile.addWatchListVideo("w"))
        try ok(try await profile.addWatchListVideo("x"))
        try ok(try await profile.deleteWatchListVideo("w"))
        try equal(["x"], ids(try await profile.watchList()))
        try ok(try await profile.clearWatchList())
        try equal([], ids(try await profile.watchList()))
        try ok(try await profile.addSearchHistory("ß 漢字 👩‍🚀"))
        try ok(try await profile.deleteSearchHistory())
    }
}
