import Foundation
import KestrinProfile

/// Measures how long the text of a list takes to become Swift values, beside Foundation's JSONDecoder.
enum Bench {
    private static let count = 500
    private static let rounds = 200

    /// As an application would write it for JSONDecoder.
    private struct Element: Decodable {
        let id: String
        let type: String?
        let progress: Int?
        let isCompleted: Bool?
        let autoAddTimestamp: String?
    }

    private struct List: Decodable {
        let id: String?
        let maxSize: Int?
        let elements: [Element]
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

    private static func compare(_ data: Data) async throws {
        let decoder = JSONDecoder()
        var library: [Double] = []
        var foundation: [Double] = []
        for _ in 0..<rounds {
            let start = processorTime()
            let list = try await Profile().history()
            let between = processorTime()
            let decoded = try decoder.decode(List.self, from: data)
            foundation.append(processorTime() - between)
            library.append(between - start)
            try that(list.elements?.count == count, "all are there")
            try that(decoded.elements.count == count, "all are there")
        }
        let ours = median(library)
        let theirs = median(foundation)
        say("\(count) entries, \(data.count) bytes; processor time in us, median of \(rounds):")
        say("  the library, the whole call, dates included: \(ours)")
        say("  JSONDecoder, decoding alone, dates as texts: \(theirs)")
        say("  \(theirs / ours) times as much")
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
