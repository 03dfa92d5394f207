import Foundation
import KestrinProfile

/// The program that docs/swift.md quotes, against the development service.
enum FirstProgramTests {
    nonisolated(unsafe) static var program = ""

    static let all = [
        Test("the first program shows the watch list", showsTheList),
        Test("the first program says what is wrong", saysWhatIsWrong),
    ]

    private static func outcome(_ words: String...) throws -> (status: Int32, output: String) {
        let process = Process()
        let output = Pipe()
        process.executableURL = URL(fileURLWithPath: program)
        process.arguments = words
        process.standardOutput = output
        try process.run()
        let text = String(decoding: output.fileHandleForReading.readDataToEndOfFile(), as: UTF8.self)
        process.waitUntilExit()
        return (process.terminationStatus, text)
    }

    @Sendable private static func showsTheList() async throws {
        let service = try Service.fresh()
        defer { service.stop() }
        let configuration = service.file("config.json").path
        for (video, shown) in [("v1", "v1\n"), ("v2", "v2\nv1\n")] {
            let (status, output) = try outcome(configuration, video)
            try equal(shown, output)
            try equal(0, status)
        }
    }

    @Sendable private static func saysWhatIsWrong() async throws {
        let service = try Service.fresh()
        let configuration = service.file("config.json").path
        try equal(2, try outcome(configuration).status)
        let broken = service.file("broken.json")
        try Data("{".utf8).write(to: broken)
        try equal(1, try outcome(broken.path, "v1").status)
        service.stop()
        let (status, output) = try outcome(configuration, "v1")
        try equal(1, status)
        try contains("no connection could be made", output)
    }
}
