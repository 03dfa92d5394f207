import CKestrinProfile
import Foundation

/// Why a request failed, or a call was refused. A request that was cancelled, or whose household has
/// ended, throws `CancellationError` instead.
///
/// No error holds a secret.
public struct KestrinError: Error, Sendable, Hashable {
    /// Who says it, e.g. "HalvardSling.SlingError".
    public let domain: String
    /// The error's number in its domain.
    public let code: Int32
    /// Of the reply; 0: there was none with an error status.
    public let status: Int
    /// What to show a viewer.
    public let notice: ErrorNotice
    /// For people who investigate.
    public let message: String
    /// What the caller should do.
    public let advice: String
    /// What the service's log knows the request by; may be empty.
    public let requestID: String
    /// Of the reply's problem document (RFC 9457); empty if it has none.
    public let problemType: String
    /// Of the reply's problem document; empty if it has none.
    public let problemTitle: String
    /// Of the reply's problem document; empty if it has none.
    public let problemDetail: String

    /// What it is, for `switch`.
    public var reason: Reason {
        switch domain {
        case Self.slingDomain: .sling(Self.of(code))
        case Self.profileDomain: .profile(Self.of(code))
        case Self.configurationDomain: .configuration(Self.of(code))
        case Self.outboxDomain: .outbox(Self.of(code))
        case Self.callDomain: .invalidCall(Self.of(code))
        default: .other
        }
    }

    /// The kinds of errors.
    public enum Reason: Sendable, Hashable {
        /// On the way; ``KestrinError/status`` is the reply's.
        case sling(SlingErrorKind)
        /// An operation's own.
        case profile(ProfileErrorKind)
        /// The configuration does not let the request go out.
        case configuration(ConfigurationErrorKind)
        /// An outbox has not kept a write.
        case outbox(OutboxErrorKind)
        /// What was handed in is not what the call takes: for whoever develops.
        case invalidCall(InvalidCallKind)
        /// Something that this version does not know.
        case other
    }
}

extension KestrinError: LocalizedError, CustomStringConvertible {
    /// The message.
    public var description: String { message }
    /// The message: for people who investigate. ``notice`` says what to show a viewer.
    public var errorDescription: String? { message }
    /// The advice.
    public var recoverySuggestion: String? { advice.isEmpty ? nil : advice }
}

extension KestrinError {
    private static let slingDomain = "HalvardSling.SlingError"
    private static let profileDomain = "KestrinProfile.ProfileError"
    private static let configurationDomain = "KestrinConfigManager.ConfigurationManagerError"
    private static let outboxDomain = "KestrinHousehold.OutboxError"
    private static let callDomain = "KestrinC"

    init(_ view: kestrin_error) {
        domain = view.domain.text
        code = view.code
        status = Int(view.status)
        notice = ErrorNotice(rawValue: view.notice) ?? .unknown
        message = view.message.text
        advice = view.advice.text
        requestID = view.request_id.text
        problemType = view.problem_type.text
        problemTitle = view.problem_title.text
        problemDetail = view.problem_detail.text
    }

    private init(_ kind: InvalidCallKind, _ message: String) {
        domain = Self.callDomain
        code = kind.rawValue
        status = 0
        notice = .broken
        self.message = message
        advice = "Mend the call; the message says what is wrong with it."
        requestID = ""
        problemType = ""
        problemTitle = ""
        problemDetail = ""
    }

    /// The call on this thread that has given the status; nil if that is no problem.
    static func problem(_ status: kestrin_status) -> KestrinError? {
        if status == 0 { return nil }
        return KestrinError(of(status), String(cString: kestrin_last_problem()))
    }

    static func check(_ status: kestrin_status) throws {
        if let problem = problem(status) { throw problem }
    }

    static func closed(_ name: String) -> KestrinError {
        KestrinError(.closed, "the \(name) is used after its end: it was closed before")
    }

    static let missingValue = KestrinError(.failed, "the library gave no value")

    private static func of<Kind: ErrorKind>(_ code: Int32) -> Kind {
        Kind(rawValue: code) ?? .unknown
    }
}

/// The numbers of a domain; of what this version does not know it is `unknown`.
private protocol ErrorKind: RawRepresentable where RawValue == Int32 {
    static var unknown: Self { get }
}

extension SlingErrorKind: ErrorKind {}
extension ProfileErrorKind: ErrorKind {}
extension ConfigurationErrorKind: ErrorKind {}
extension OutboxErrorKind: ErrorKind {}
extension InvalidCallKind: ErrorKind {}
