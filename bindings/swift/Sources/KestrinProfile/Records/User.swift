import CKestrinProfile

/// A profile of the household.
public struct User: Sendable, Hashable {
    /// Nil until the service has created the profile.
    public var profileID: String?
    /// The display name; the service may send none.
    public var username: String?
    /// Its picture.
    public var avatar: String?
    /// Its group.
    public var group: String?
    /// Whether this is the household's default profile.
    public var defaultUser: Bool

    /// A profile; without an identifier one that is still to be created.
    public init(
        profileID: String? = nil, username: String?, avatar: String? = nil, group: String? = nil,
        defaultUser: Bool = false
    ) {
        self.profileID = profileID
        self.username = username
        self.avatar = avatar
        self.group = group
        self.defaultUser = defaultUser
    }

    init(_ view: kestrin_user) {
        profileID = view.profile_id.string
        username = view.username.string
        avatar = view.avatar.string
        group = view.group.string
        defaultUser = view.default_user
    }

    func view(in memory: CallMemory) -> kestrin_user {
        var view = kestrin_user()
        view.size = MemoryLayout<kestrin_user>.stride
        view.profile_id = memory.text(profileID)
        view.username = memory.text(username)
        view.avatar = memory.text(avatar)
        view.group = memory.text(group)
        view.default_user = defaultUser
        return view
    }
}
