import Foundation

#if canImport(FoundationNetworking)
import FoundationNetworking
#endif

/// Sends requests with URLSession: with the system's proxies, certificates and rules for the power of
/// the radio.
///
/// It keeps no cookies, no cache and no credentials. URLSession has no limit of its own for connecting:
/// the one for all of a transfer counts. A request without User-Agent goes out with an empty one.
public final class URLSessionTransport: Transport {
    private let session: URLSession
    private let exchanges = Exchanges()

    /// - Parameter configuration: nil: an ephemeral one
    public init(configuration: URLSessionConfiguration? = nil) {
        let configuration = configuration ?? .ephemeral
        configuration.httpCookieStorage = nil
        configuration.httpShouldSetCookies = false
        configuration.urlCache = nil
        configuration.urlCredentialStorage = nil
        configuration.requestCachePolicy = .reloadIgnoringLocalCacheData
        session = URLSession(configuration: configuration, delegate: exchanges, delegateQueue: nil)
    }

    deinit {
        // It has its delegate until then.
        session.finishTasksAndInvalidate()
    }

    /// Sends a request; see ``Transport/send(_:)``.
    public func send(_ request: TransferRequest) async throws -> TransferReply {
        guard let url = URL(string: request.url) else { throw TransferFailure(.malformedURL) }
        var outgoing = URLRequest(url: url)
        outgoing.httpMethod = request.method
        outgoing.httpBody = request.body
        outgoing.timeoutInterval = Double(request.totalTimeout.milliseconds) / 1000
        for header in request.headers {
            outgoing.addValue(header.value, forHTTPHeaderField: header.name)
        }
        if !request.sendsUserAgent { outgoing.setValue("", forHTTPHeaderField: "User-Agent") }
        let task = session.dataTask(with: outgoing)
        let exchange = exchanges.begin(task, request)
        // URLSession's own limit is between two pieces of a reply.
        let limit = Task.detached {
            try await Task.sleep(for: request.totalTimeout)
            exchange.fail(.totalTimeout)
        }
        defer {
            limit.cancel()
            exchanges.forget(task)
        }
        return try await withTaskCancellationHandler {
            try await exchange.reply()
        } onCancel: {
            exchange.fail(.cancelled)
        }
    }
}

/// One request and what has come of it.
private final class Exchange: @unchecked Sendable {
    private let request: TransferRequest
    private let task: URLSessionTask
    private let lock = NSLock()
    private var redirects = 0
    private var body = Data()
    private var outcome: Result<TransferReply, any Error>?
    private var waiting: CheckedContinuation<TransferReply, any Error>?

    init(_ request: TransferRequest, _ task: URLSessionTask) {
        self.request = request
        self.task = task
    }

    func reply() async throws -> TransferReply {
        try await withCheckedThrowingContinuation { continuation in
            let known = lock.withLock {
                if outcome == nil { waiting = continuation }
                return outcome
            }
            if let known {
                continuation.resume(with: known)
            } else {
                task.resume()
            }
        }
    }

    func fail(_ kind: SlingErrorKind, _ message: String? = nil) {
        let failure: any Error =
            kind == .cancelled ? CancellationError() : TransferFailure(kind, message)
        end(.failure(failure))
        task.cancel()
    }

    func received(_ data: Data) {
        let fits = lock.withLock {
            guard body.count + data.count <= request.maxBodyLength else { return false }
            body.append(data)
            return true
        }
        if !fits { fail(.tooLarge, "the reply has more than \(request.maxBodyLength) bytes") }
    }

    func follows(_ redirect: URLRequest) -> Bool {
        guard let from = URL(string: request.url), let to = redirect.url else { return false }
        return lock.withLock {
            redirects += 1
            return redirects <= request.maxRedirects && Self.origin(from) == Self.origin(to)
        }
    }

    func ended(_ response: URLResponse?, _ error: (any Error)?) {
        if let error {
            end(.failure(Self.failure(error)))
        } else if let response = response as? HTTPURLResponse {
            end(.success(reply(response)))
        } else {
            end(.failure(TransferFailure(.malformedReply)))
        }
    }

    private func reply(_ response: HTTPURLResponse) -> TransferReply {
        let headers = response.allHeaderFields.compactMap { name, value -> Header? in
            guard let name = name as? String, let value = value as? String else { return nil }
            return Header(name: name, value: value)
        }
        return TransferReply(
            status: response.statusCode, headers: headers, body: lock.withLock { body },
            effectiveURL: response.url?.absoluteString)
    }

    private func end(_ result: Result<TransferReply, any Error>) {
        let waiting = lock.withLock {
            guard outcome == nil else { return nil as CheckedContinuation<TransferReply, any Error>? }
            outcome = result
            defer { self.waiting = nil }
            return self.waiting
        }
        waiting?.resume(with: result)
    }

    private static func origin(_ url: URL) -> [String?] {
        let scheme = url.scheme?.lowercased()
        let port = url.port ?? (scheme == "https" ? 443 : 80)
        return [scheme, url.host?.lowercased(), String(port)]
    }

    private static func failure(_ error: any Error) -> any Error {
        guard let error = error as? URLError else { return TransferFailure(.connectionLost) }
        if error.code == .cancelled { return CancellationError() }
        // Its text may hold the URL.
        return TransferFailure(kinds[error.code] ?? .connectionLost, "URLError \(error.code.rawValue)")
    }

    private static let kinds: [URLError.Code: SlingErrorKind] = [
        .badURL: .malformedURL,
        .unsupportedURL: .malformedURL,
        .cannotFindHost: .nameNotResolved,
        .dnsLookupFailed: .nameNotResolved,
        .cannotConnectToHost: .cannotConnect,
        // Without a network no name is resolved either; an application says the same of both.
        .notConnectedToInternet: .nameNotResolved,
        .dataNotAllowed: .nameNotResolved,
        .internationalRoamingOff: .nameNotResolved,
        .callIsActive: .nameNotResolved,
        .timedOut: .totalTimeout,
        .networkConnectionLost: .connectionLost,
        .badServerResponse: .malformedReply,
        .cannotParseResponse: .malformedReply,
        .cannotDecodeRawData: .malformedReply,
        .cannotDecodeContentData: .malformedReply,
        .httpTooManyRedirects: .redirect,
        .redirectToNonExistentLocation: .redirect,
        .dataLengthExceedsMaximum: .tooLarge,
        .secureConnectionFailed: .tls,
        .serverCertificateHasBadDate: .tls,
        .serverCertificateUntrusted: .tls,
        .serverCertificateHasUnknownRoot: .tls,
        .serverCertificateNotYetValid: .tls,
        .clientCertificateRejected: .tls,
        .clientCertificateRequired: .tls,
    ]
}

/// The delegate of the session: leads what happens to the exchange that it belongs to.
private final class Exchanges: NSObject, URLSessionDataDelegate, @unchecked Sendable {
    private let lock = NSLock()
    private var open: [Int: Exchange] = [:]

    func begin(_ task: URLSessionTask, _ request: TransferRequest) -> Exchange {
        let exchange = Exchange(request, task)
        lock.withLock { open[task.taskIdentifier] = exchange }
        return exchange
    }

    /// One that was cancelled before it began has no end.
    func forget(_ task: URLSessionTask) {
        _ = lock.withLock { open.removeValue(forKey: task.taskIdentifier) }
    }

    func urlSession(_ session: URLSession, dataTask: URLSessionDataTask, didReceive data: Data) {
        exchange(dataTask)?.received(data)
    }

    func urlSession(
        _ session: URLSession, task: URLSessionTask,
        willPerformHTTPRedirection response: HTTPURLResponse, newRequest request: URLRequest,
        completionHandler: @escaping (URLRequest?) -> Void
    ) {
        let follows = exchange(task)?.follows(request) ?? false
        completionHandler(follows ? request : nil)
    }

    func urlSession(
        _ session: URLSession, task: URLSessionTask, didCompleteWithError error: (any Error)?
    ) {
        lock.withLock { open.removeValue(forKey: task.taskIdentifier) }?
            .ended(task.response, error)
    }

    private func exchange(_ task: URLSessionTask) -> Exchange? {
        lock.withLock { open[task.taskIdentifier] }
    }
}
