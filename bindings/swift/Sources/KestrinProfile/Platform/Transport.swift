import CKestrinProfile
import Foundation

/// Sends the library's requests with the platform's means. Time limits and the verification of the peer
/// are the platform's to keep. Only requests that just read (GET, HEAD, OPTIONS, TRACE) may be sent again
/// by it. Redirects may be followed within the origin alone, or not at all.
public protocol Transport: Sendable {
    /// Sends a request and awaits its reply, of any status. Its task is cancelled when nobody wants the
    /// outcome any more.
    ///
    /// - Throws: ``TransferFailure`` with what went wrong; `CancellationError` ends the request as
    ///   cancelled, and anything else as ``SlingErrorKind/connectionLost``: the service may have it.
    ///   Kinds that say that nothing was sent, as ``SlingErrorKind/cannotConnect`` does, let any request
    ///   be sent again.
    func send(_ request: TransferRequest) async throws -> TransferReply
}

/// What a ``Transport`` is to send.
public struct TransferRequest: Sendable, Hashable {
    /// Of HTTP.
    public let method: String
    /// Of https, or of http where the configuration allows it.
    public let url: String
    /// All of them but User-Agent and those of the framing.
    public let headers: [Header]
    /// Nil: the request has none.
    public let body: Data?
    /// False: without a User-Agent header.
    public let sendsUserAgent: Bool
    /// Until the connection is there.
    public let connectTimeout: Duration
    /// For all of it.
    public let totalTimeout: Duration
    /// 0: none is followed, a 3xx is the reply.
    public let maxRedirects: Int
    /// Of the reply, decoded; a longer one may be cut off and failed.
    public let maxBodyLength: Int
    /// For logs.
    public let operation: String
    /// For logs: what may be shown of the URL.
    public let pathTemplate: String

    init(_ view: kestrin_transfer_request) {
        method = view.method.text
        url = view.url.text
        headers = Header.all(view.headers)
        body = view.body.bytes
        sendsUserAgent = view.sends_user_agent
        connectTimeout = .milliseconds(view.connect_timeout_ms)
        totalTimeout = .milliseconds(view.total_timeout_ms)
        maxRedirects = Int(view.max_redirects)
        maxBodyLength = view.max_body_length
        operation = view.operation.text
        pathTemplate = view.path_template.text
    }
}

extension TransferRequest: CustomStringConvertible, CustomDebugStringConvertible, CustomReflectable {
    /// Without the URL, the headers and the body, which hold secrets.
    public var description: String { "TransferRequest(\(operation): \(method) \(pathTemplate))" }
    /// The same.
    public var debugDescription: String { description }
    /// The same, for `dump`.
    public var customMirror: Mirror {
        Mirror(
            self,
            children: ["operation": operation, "method": method, "pathTemplate": pathTemplate])
    }
}

/// What came back.
public struct TransferReply: Sendable, Hashable {
    /// Of HTTP.
    public var status: Int
    /// Of the reply.
    public var headers: [Header]
    /// After content decoding.
    public var body: Data
    /// After redirects; nil: there were none.
    public var effectiveURL: String?

    /// A reply of any status.
    public init(
        status: Int, headers: [Header] = [], body: Data = Data(), effectiveURL: String? = nil
    ) {
        self.status = status
        self.headers = headers
        self.body = body
        self.effectiveURL = effectiveURL
    }
}

/// Why a ``Transport`` has no reply.
public struct TransferFailure: Error, Sendable, Hashable {
    /// What went wrong.
    public var kind: SlingErrorKind
    /// For people, without secrets.
    public var message: String?

    /// A failure.
    public init(_ kind: SlingErrorKind, _ message: String? = nil) {
        self.kind = kind
        self.message = message
    }
}
