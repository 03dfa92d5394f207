import CKestrinProfile

/// One profile of a household, and all operations as it does them: it obtains and renews its bind, and
/// repeats as the retry policy says.
public final class ProfileSession: ProfileOperations {
    let household: Household
    let handle: Handle

    init(_ household: Household, _ options: SessionOptions) throws {
        self.household = household
        handle = try Handle("session", release: kestrin_session_release) { place in
            try household.handle.use { household in
                CallMemory.with { memory in
                    var view = options.view(in: memory)
                    return kestrin_household_session(household, &view, place)
                }
            }
        }
    }

    /// The same profile, whose writes are kept by an outbox instead of being sent.
    public func later(_ outbox: Outbox) -> LaterSession {
        LaterSession(self, outbox)
    }

    /// Does what the functions of ``ProfileOperations`` ask for.
    public func answer(to call: Call) async throws -> Answer {
        try await KestrinProfile.answer { completion, request in
            try handle.use { session in
                CallMemory.with { memory in
                    var view = call.view(in: memory)
                    return kestrin_session_start(session, &view, completion, request)
                }
            }
        }
    }
}

/// Who acts, and how.
public struct SessionOptions: Sendable, Hashable {
    /// Nil: the household's parent, as it is configured now.
    public var profileID: String?
    /// Nil: the configured one, at the time of each attempt.
    public var brandID: String?
    /// Each request is sent once.
    public var withoutRepeats: Bool
    /// Of a call; nil: that of the retry policy.
    public var deadline: Duration?

    /// Without arguments the household's parent.
    public init(
        profileID: String? = nil, brandID: String? = nil, withoutRepeats: Bool = false,
        deadline: Duration? = nil
    ) {
        self.profileID = profileID
        self.brandID = brandID
        self.withoutRepeats = withoutRepeats
        self.deadline = deadline
    }

    func view(in memory: CallMemory) -> kestrin_session_options {
        var view = kestrin_session_options()
        view.size = MemoryLayout<kestrin_session_options>.stride
        view.profile_id = memory.text(profileID)
        view.brand_id = memory.text(brandID)
        view.without_repeats = withoutRepeats
        view.deadline_ms = kestrin_optional_int64(deadline?.milliseconds)
        return view
    }
}
