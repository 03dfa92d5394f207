import CKestrinProfile
import Foundation

// Swift values of what the library shows.

extension kestrin_text {
    /// Nil if it is absent.
    var string: String? {
        guard let data else { return nil }
        let bytes = UnsafeRawPointer(data).assumingMemoryBound(to: UInt8.self)
        return String(decoding: UnsafeBufferPointer(start: bytes, count: length), as: UTF8.self)
    }

    /// Empty if it is absent.
    var text: String { string ?? "" }

    /// Nil if it is absent.
    var bytes: Data? { data.map { Data(bytes: $0, count: length) } }
}

extension kestrin_optional_int64 {
    init(_ value: Int64?) {
        self.init(present: value != nil, value: value ?? 0)
    }

    var number: Int64? { present ? value : nil }
    var seconds: Duration? {
        // Duration.seconds is generic, and slow for a list.
        present ? Duration(secondsComponent: value, attosecondsComponent: 0) : nil
    }
    var date: Date? { present ? Date(microsecondsSince1970: value) : nil }
}

extension kestrin_optional_bool {
    init(_ value: Bool?) {
        self.init(present: value != nil, value: value ?? false)
    }

    var bool: Bool? { present ? value : nil }
}

/// The elements of an array that is `stride` bytes from one to the next.
@inline(__always)
func elements<View, Value>(
    _ first: UnsafePointer<View>?, _ count: Int, _ stride: Int,
    _ read: (UnsafePointer<View>) -> Value
) -> [Value] {
    guard let first else { return [] }
    let start = UnsafeRawPointer(first)
    var values: [Value] = []
    values.reserveCapacity(count)
    for index in 0..<count {
        values.append(read((start + index * stride).assumingMemoryBound(to: View.self)))
    }
    return values
}

func elements<Element>(_ first: UnsafePointer<Element>?, _ count: Int) -> [Element] {
    Array(UnsafeBufferPointer(start: first, count: first == nil ? 0 : count))
}

extension Date {
    init(microsecondsSince1970 microseconds: Int64) {
        // Seconds and the rest apart: together they would be rounded to less than a microsecond.
        let (seconds, rest) = microseconds.quotientAndRemainder(dividingBy: 1_000_000)
        self.init(
            timeIntervalSinceReferenceDate: Double(seconds - Self.referenceSeconds)
                + Double(rest) / 1e6)
    }

    init(millisecondsSince1970 milliseconds: Int64) {
        self.init(microsecondsSince1970: milliseconds * 1000)
    }

    /// What no Int64 holds becomes the nearest one that does.
    var microsecondsSince1970: Int64 {
        let whole = timeIntervalSinceReferenceDate.rounded(.down)
        let rest = ((timeIntervalSinceReferenceDate - whole) * 1e6).rounded()
        let seconds = Int64(clamping: whole, to: -9_000_000_000_000...9_000_000_000_000)
        return (seconds + Self.referenceSeconds) * 1_000_000 + Int64(rest)
    }

    /// 2001-01-01T00:00:00Z.
    private static let referenceSeconds: Int64 = 978_307_200
}

extension Int64 {
    init(clamping value: Double, to range: ClosedRange<Int64>) {
        if value.isNaN {
            self = 0
        } else if value <= Double(range.lowerBound) {
            self = range.lowerBound
        } else if value >= Double(range.upperBound) {
            self = range.upperBound
        } else {
            self = Int64(value)
        }
    }
}

extension Duration {
    /// Rounded down, so that no position is told that was not reached.
    var wholeSeconds: Int64 {
        let (seconds, attoseconds) = components
        return attoseconds < 0 ? seconds - 1 : seconds
    }

    /// Rounded towards zero; what no Int64 holds becomes the nearest one that does.
    /// Rounded away from none: the shortest time is one, and what is below zero stays there.
    var milliseconds: Int64 {
        let whole = units(of: 1_000)
        let exact = Duration.milliseconds(whole)
        if self > exact { return whole == .max ? whole : whole + 1 }
        return self < exact && whole != .min ? whole - 1 : whole
    }
    var nanoseconds: Int64 { units(of: 1_000_000_000) }

    private func units(of perSecond: Int64) -> Int64 {
        let (seconds, attoseconds) = components
        let (whole, overflow) = seconds.multipliedReportingOverflow(by: perSecond)
        let rest = attoseconds / (1_000_000_000_000_000_000 / perSecond)
        let (sum, overflows) = whole.addingReportingOverflow(rest)
        return overflow || overflows ? (seconds < 0 ? .min : .max) : sum
    }
}
