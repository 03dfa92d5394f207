import CKestrinProfile
import Foundation

/// A header of a request or a reply.
public struct Header: Sendable, Hashable {
    /// Without a colon.
    public var name: String
    /// As text; bytes that are not UTF-8 are replaced.
    public var value: String

    /// A header.
    public init(name: String, value: String) {
        self.name = name
        self.value = value
    }

    static func all(_ headers: kestrin_headers) -> [Header] {
        elements(headers.first, headers.count).map {
            Header(name: $0.name.text, value: $0.value.text)
        }
    }

    static func view(of headers: [Header], in memory: CallMemory) -> kestrin_headers {
        let views = headers.map {
            kestrin_header(name: memory.text($0.name), value: memory.text($0.value))
        }
        return kestrin_headers(first: memory.array(views), count: views.count)
    }
}

/// A reply as it came.
public struct Response: Sendable, Hashable {
    /// Of HTTP (RFC 9110, section 15).
    public var status: Int
    /// In the order in which they came.
    public var headers: [Header]
    /// Bytes of any kind.
    public var body: Data

    /// The body as text; bytes that are not UTF-8 are replaced.
    public var text: String { String(decoding: body, as: UTF8.self) }

    init(_ view: kestrin_response) {
        status = Int(view.status)
        headers = Header.all(view.headers)
        body = view.body.bytes ?? Data()
    }
}
