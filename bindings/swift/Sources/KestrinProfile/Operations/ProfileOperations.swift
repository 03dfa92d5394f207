/// All 22 operations, those of ``ListWrites`` included. Each throws ``KestrinError``, or
/// `CancellationError` if the task was cancelled, which aborts the transfer.
public protocol ProfileOperations: ListWrites where Written == Response {
    /// Does what the functions below ask for.
    func answer(to call: Call) async throws -> Answer
}

extension ProfileOperations {
    /// Does what the functions of ``ListWrites`` ask for.
    public func write(_ call: Call) async throws -> Response {
        try await answer(to: call).response()
    }

    /// The right to act for the profile: the held one at once, or a new one, which is then held.
    public func bind() async throws -> AnonymousBind {
        try await answer(to: Call(.anonymousBind)).bind()
    }

    /// Asks whether a name may be given to a profile; throws if not.
    @discardableResult
    public func validateProfileName(_ name: String) async throws -> Response {
        try await write(Call(.validateProfileName) { $0.userName = name })
    }

    /// Creates a profile, and gives it as the service knows it, with its identifier.
    @discardableResult
    public func createProfile(_ user: User) async throws -> User {
        try await answer(to: Call(.createProfile) { $0.user = user }).user()
    }

    /// The household's profiles, in the service's order.
    public func profiles() async throws -> [User] {
        try await answer(to: Call(.getProfiles)).users()
    }

    /// Gives the profile with the user's identifier the user's name, avatar, group and default mark.
    @discardableResult
    public func editProfile(_ user: User) async throws -> Response {
        try await write(Call(.editProfile) { $0.user = user })
    }

    /// Deletes a profile with all its lists.
    @discardableResult
    public func deleteProfile(_ profileID: String) async throws -> Response {
        try await write(Call(.deleteProfile) { $0.profileID = profileID })
    }

    /// The viewing history: videos with progress, the latest first.
    public func history() async throws -> UserProfile {
        try await answer(to: Call(.getHistory)).list()
    }

    /// The history's entry of one video.
    public func videoHistory(_ videoID: String) async throws -> UserProfile {
        try await answer(to: Call(.getVideoHistory) { $0.videoID = videoID }).list()
    }

    /// The favourite shows.
    public func favorites() async throws -> UserProfile {
        try await answer(to: Call(.getFavorites)).list()
    }

    /// The watch list: videos to watch.
    public func watchList() async throws -> UserProfile {
        try await answer(to: Call(.getWatchList)).list()
    }
}
