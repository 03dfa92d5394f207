import CKestrinProfile

/// What a log may know of repeats and binds. No token, no identifier.
public struct HouseholdEvent: Sendable, Hashable {
    /// What it is.
    public var kind: Kind
    /// What was done; nil: something that this version does not know.
    public var operation: ProfileOperation?
    /// The number of the attempt, from 1 on.
    public var attempt: Int
    /// How many there are at the most.
    public var maxAttempts: Int
    /// Until the next one.
    public var delay: Duration
    /// For example "503".
    public var reason: String
    /// All of it in one line.
    public var text: String

    /// What can happen.
    public enum Kind: Int32, Sendable, Hashable, CaseIterable {
        /// A request will be repeated.
        case `repeat` = 0
        /// It will not be repeated any more.
        case givenUp
        /// A bind is obtained.
        case bindRequested
        /// A bind is obtained though one was held.
        case bindRenewed
        /// A request is sent once more, with a new bind.
        case sentOnceMore
        /// Something that this version does not know.
        case unknown = -1
    }

    init(_ view: kestrin_household_event) {
        kind = Kind(rawValue: view.kind) ?? .unknown
        operation = ProfileOperation(rawValue: view.operation)
        attempt = Int(view.attempt)
        maxAttempts = Int(view.max_attempts)
        delay = .milliseconds(view.delay_ms)
        reason = view.reason.text
        text = view.text.text
    }
}
