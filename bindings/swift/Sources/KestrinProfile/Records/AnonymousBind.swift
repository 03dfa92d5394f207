import CKestrinProfile

/// The right to act for a profile.
public struct AnonymousBind: Sendable, Hashable {
    /// The profile.
    public var profileID: String
    /// A secret; no text of this record shows it.
    public var token: String

    /// A bind that the application has.
    public init(profileID: String, token: String) {
        self.profileID = profileID
        self.token = token
    }

    init(_ view: kestrin_bind) {
        profileID = view.profile_id.text
        token = view.token.text
    }

    func view(in memory: CallMemory) -> kestrin_bind {
        var view = kestrin_bind()
        view.size = MemoryLayout<kestrin_bind>.stride
        view.profile_id = memory.text(profileID)
        view.token = memory.text(token)
        return view
    }
}

extension AnonymousBind: CustomStringConvertible, CustomDebugStringConvertible, CustomReflectable {
    /// Without the token.
    public var description: String { "AnonymousBind(profileID: \(profileID), token: (secret))" }
    /// Without the token.
    public var debugDescription: String { description }
    /// Without the token, for `dump`.
    public var customMirror: Mirror {
        Mirror(self, children: ["profileID": profileID, "token": "(secret)"])
    }
}

/// All binds that are held.
public struct HeldBinds: Sendable, Hashable {
    /// At most one for each profile.
    public var binds: [AnonymousBind]
    /// The profile whose bind plain operations use; nil: none yet.
    public var selectedProfileID: String?

    /// What a ``BindStore`` gives back.
    public init(binds: [AnonymousBind] = [], selectedProfileID: String? = nil) {
        self.binds = binds
        self.selectedProfileID = selectedProfileID
    }
}
