import CKestrinProfile

/// The operations, each one request and nothing else: nothing is repeated, and no bind obtained. An
/// application is better off with a ``Household``.
public struct Profile: ProfileOperations, Hashable {
    /// Nil: the held ones, of the parent for the household's profiles, else of the selected profile.
    public var givenBind: AnonymousBind?
    /// Whose bind ``ProfileOperations/bind()`` asks for; nil: the household's parent's.
    public var profileID: String?
    /// Nil: the configured one.
    public var brandID: String?

    /// A value without state.
    public init(bind: AnonymousBind? = nil, profileID: String? = nil, brandID: String? = nil) {
        givenBind = bind
        self.profileID = profileID
        self.brandID = brandID
    }

    /// Does what the functions of ``ProfileOperations`` ask for.
    public func answer(to call: Call) async throws -> Answer {
        try await KestrinProfile.answer { completion, request in
            CallMemory.with { memory in
                let bind = takesBind(call) ? givenBind.map { memory.one($0.view(in: memory)) } : nil
                var view = completed(call).view(in: memory)
                return kestrin_profile_start(bind, &view, completion, request)
            }
        }
    }

    private func takesBind(_ call: Call) -> Bool {
        call.operation != .anonymousBind && call.operation != .deleteSearchHistory
    }

    private func completed(_ call: Call) -> Call {
        var call = call
        if call.operation == .anonymousBind { call.profileID = profileID }
        call.brandID = brandID
        return call
    }
}
