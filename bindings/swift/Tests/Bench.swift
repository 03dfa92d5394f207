import Foundation
import KestrinProfile

/// Measures how long the text of a list takes to become Swift values, beside Foundation's JSONDecoder.
enum Bench {
    private static let count = 500
    private static let rounds = 200

    /// As an application would write it for JSONDecoder.
    private struct Element<Added: Decodable>: Decodable {
        let id: String
        let type: String?
        let progress: Int?
        let isCompleted: Bool?
        let autoAddTimestamp: Added?
    }

    private struct List<Added: Decodable>: Decodable {
        let id: String?
        let maxSize: Int?
        let elements: [Element<Added>]
    }

    static func run() async throws {
        let elements = (0..<count).map { index in
            """
            {"id": "the-long-way-s\(index / 10)-e\(index)", "type": "VIDEO", "progress": \(index * 7), \
            "isCompleted": \(index % 3 == 0), "autoAddTimestamp": "2017-03-09T18:25:43.511Z"}
            """
        }
        let text = #"{"id": "history", "maxSize": 500, "elements": [\#(elements.joined(separator: ","))]}"#
        let data = Data(text.utf8)
        _ = try FakeTransport.answering(200, text)
        try await compare(data)
    }

    /// Foundation's own strategy for such dates takes no fractions of a second.
    private static func dateDecoder() -> JSONDecoder {
        let format = Date.ISO8601FormatStyle(includingFractionalSeconds: true)
        let decoder = JSONDecoder()
        decoder.dateDecodingStrategy = .custom { decoder in
            try format.parse(decoder.singleValueContainer().decode(String.self))
        }
        return decoder
    }

    private static func compare(_ data: Data) async throws {
        let decoder = dateDecoder()
        var library: [Double] = []
        var foundation: [Double] = []
        var withoutDates: [Double] = []
        for _ in 0..<rounds {
            let start = processorTime()
            let list = try await Profile().history()
            let first = processorTime()
            let decoded = try decoder.decode(List<Date>.self, from: data)
            let second = processorTime()
            let texts = try decoder.decode(List<String>.self, from: data)
            withoutDates.append(processorTime() - second)
            foundation.append(second - first)
            library.append(first - start)
            try equal(count, list.elements?.count)
            try equal(list.elements?.last?.autoAddTimestamp, decoded.elements.last?.autoAddTimestamp)
            try equal(count, texts.elements.count)
        }
        let ours = median(library)
        say("\(count) entries, \(data.count) bytes; processor time, median of \(rounds) rounds:")
        say(String(format: "- the library, the whole call: %.0f us", ours))
        for (result, times) in [("to the same values", foundation), ("dates as texts", withoutDates)] {
            let theirs = median(times)
            say(String(
                format: "- JSONDecoder, %@: %.0f us, %.1f times as much", result, theirs, theirs / ours))
        }
    }

    /// Of all threads, in microseconds: others that run meanwhile do not count.
    private static func processorTime() -> Double {
        var time = timespec()
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time)
        return Double(time.tv_sec) * 1e6 + Double(time.tv_nsec) / 1e3
    }

    private static func median(_ times: [Double]) -> Double {
        times.sorted()[times.count / 2]
    }
}
