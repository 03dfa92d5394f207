import CKestrinProfile
import Foundation

/// What is handed to the library in one call: it copies what it needs before it returns.
final class CallMemory {
    private var blocks: [UnsafeMutableRawPointer] = []

    private init() {}

    deinit {
        for block in blocks { block.deallocate() }
    }

    static func with<Value>(_ body: (CallMemory) throws -> Value) rethrows -> Value {
        let memory = CallMemory()
        return try withExtendedLifetime(memory) { try body(memory) }
    }

    func text(_ value: String?) -> kestrin_text {
        guard var value else { return kestrin_text() }
        return value.withUTF8 { copy(UnsafeRawBufferPointer($0)) }
    }

    func bytes(_ value: Data?) -> kestrin_text {
        guard let value else { return kestrin_text() }
        return value.withUnsafeBytes { copy($0) }
    }

    /// Nil for nothing.
    func array<Element>(_ values: [Element]) -> UnsafePointer<Element>? {
        guard !values.isEmpty else { return nil }
        let place = block(values.count * MemoryLayout<Element>.stride, MemoryLayout<Element>.alignment)
            .bindMemory(to: Element.self, capacity: values.count)
        place.initialize(from: values, count: values.count)
        return UnsafePointer(place)
    }

    func one<Element>(_ value: Element) -> UnsafePointer<Element> {
        let place = block(MemoryLayout<Element>.stride, MemoryLayout<Element>.alignment)
            .bindMemory(to: Element.self, capacity: 1)
        place.initialize(to: value)
        return UnsafePointer(place)
    }

    private func copy(_ bytes: UnsafeRawBufferPointer) -> kestrin_text {
        // An empty text has an address, too: it is not an absent one.
        let place = block(max(bytes.count, 1), 1)
        if let start = bytes.baseAddress { place.copyMemory(from: start, byteCount: bytes.count) }
        return kestrin_text(
            data: place.assumingMemoryBound(to: CChar.self), length: bytes.count)
    }

    private func block(_ size: Int, _ alignment: Int) -> UnsafeMutableRawPointer {
        let place = UnsafeMutableRawPointer.allocate(byteCount: size, alignment: alignment)
        blocks.append(place)
        return place
    }
}
