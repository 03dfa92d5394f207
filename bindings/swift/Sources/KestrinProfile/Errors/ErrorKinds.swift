/// What to show a viewer of an error; docs/household.md says which error is which.
public enum ErrorNotice: Int32, Sendable, Hashable, CaseIterable {
    /// Nothing: it ended because somebody wanted it to.
    case nothing = 0
    /// There is no network.
    case noNetwork
    /// The service does not work.
    case serviceDown
    /// Sign in again.
    case signInAgain
    /// That is not allowed.
    case notAllowed
    /// What was entered is not right.
    case mendInput
    /// The connection is not secure.
    case notSecure
    /// Something is broken, and the viewer can do nothing about it.
    case broken
    /// Nobody knows, or this version does not.
    case unknown
    /// The device has no space left.
    case noSpace
}

/// What can go wrong on the way.
public enum SlingErrorKind: Int32, Sendable, Hashable, CaseIterable {
    /// The reply has an error status.
    case httpStatus = 0
    /// There was no connection.
    case cannotConnect
    /// The host's name was not resolved.
    case nameNotResolved
    /// The peer was not verified, or TLS failed otherwise.
    case tls
    /// The connection was not made in time.
    case connectTimeout
    /// The reply did not come in time.
    case totalTimeout
    /// The connection was lost; the service may have worked on the request.
    case connectionLost
    /// The reply is too large.
    case tooLarge
    /// The URL is none.
    case malformedURL
    /// A header that cannot be sent.
    case forbiddenHeader
    /// The reply is not HTTP.
    case malformedReply
    /// A redirect that is not followed.
    case redirect
    /// It ended because the transport did.
    case cancelled
    /// There was not enough memory.
    case outOfMemory
    /// The reply's body is not JSON.
    case malformedBody
    /// Something that this version does not know.
    case unknown = -1
}

/// An operation's own errors.
public enum ProfileErrorKind: Int32, Sendable, Hashable, CaseIterable {
    /// A request was made of a record without an operation.
    case parameterOperationMismatch = 0
    /// Reserved: no operation raises it.
    case anonymousBindUninitialized
    /// A bind was requested without a profile identifier.
    case profileIDValidationFailure
    /// A profile was to be changed without saying which.
    case userInvalidForOperation
    /// The household's parent profile can be neither edited nor deleted.
    case parentInvalidForOperation
    /// The reply holds no valid bind.
    case anonymousBindSerializationError
    /// The reply is no list.
    case userProfileSerializationError
    /// The reply is no profile, or no list of profiles.
    case userSerializationError
    /// Something that this version does not know.
    case unknown = -1
}

/// Why the configuration does not let a request go out.
public enum ConfigurationErrorKind: Int32, Sendable, Hashable, CaseIterable {
    /// The record is incomplete.
    case invalidParameters = 0
    /// The configuration switches the service off.
    case serviceDisabled
    /// There is no value for a placeholder of the URL.
    case placeholderUnfilled
    /// There is no configuration, or none of the operation.
    case serviceNotConfigured
    /// The strict mode refuses the identifier.
    case identifierRefused
    /// Something that this version does not know.
    case unknown = -1
}

/// Why an outbox has not kept a write.
public enum OutboxErrorKind: Int32, Sendable, Hashable, CaseIterable {
    /// The write is none that can be kept.
    case invalidWrite = 0
    /// Too many writes wait.
    case full
    /// The store could not be opened.
    case storeUnavailable
    /// The write could not be stored.
    case notStored
    /// The outbox has ended.
    case closed
    /// Something that this version does not know.
    case unknown = -1
}

/// What the library does not take.
public enum InvalidCallKind: Int32, Sendable, Hashable, CaseIterable {
    /// What was handed in is not what the function takes.
    case invalidArgument = 1
    /// A text that is not UTF-8. Swift's texts always are.
    case invalidUTF8
    /// There was not enough memory.
    case outOfMemory
    /// The library was built without it.
    case notAvailable
    /// The system refused, for example a thread.
    case failed
    /// Something was used after its `close`.
    case closed = -2
    /// Something that this version does not know.
    case unknown = -1
}
