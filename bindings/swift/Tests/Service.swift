import Foundation
import KestrinProfile

/// The development service, with a database of its own.
final class Service: @unchecked Sendable {
    nonisolated(unsafe) static var program = ""

    private let folder: URL
    private let lock = NSLock()
    private var process: Process?

    init() throws {
        folder = FileManager.default.temporaryDirectory
            .appendingPathComponent("kestrin-swift-\(UUID().uuidString)")
        try FileManager.default.createDirectory(at: folder, withIntermediateDirectories: true)
        try start()
    }

    deinit {
        stop()
        try? FileManager.default.removeItem(at: folder)
    }

    func file(_ name: String) -> URL {
        folder.appendingPathComponent(name)
    }

    /// Starts it again with what it had, perhaps elsewhere, and configures the library for it.
    func start() throws {
        let configuration = file("config.json")
        let process = Process()
        let output = Pipe()
        process.executableURL = URL(fileURLWithPath: Self.program)
        process.arguments = [
            "--port", "0", "--database", file("db").path, "--write-config", configuration.path,
            "--quiet",
        ]
        process.standardOutput = output
        try process.run()
        lock.withLock { self.process = process }
        var line = ""
        while !line.contains("\n") {
            let data = output.fileHandleForReading.availableData
            if data.isEmpty { throw Unexpected(description: "the service did not start") }
            line += String(decoding: data, as: UTF8.self)
        }
        try contains("ready", line)
        try ConfigurationManager.configure(String(contentsOf: configuration, encoding: .utf8))
    }

    func stop() {
        let running = lock.withLock {
            defer { process = nil }
            return process
        }
        running?.terminate()
        running?.waitUntilExit()
    }

    /// A new one, for the built-in transport or another, and no binds.
    static func fresh(_ transport: (any Transport)? = nil) throws -> Service {
        try ConfigurationManager.setTransport(transport)
        try ConfigurationManager.dropBinds()
        return try Service()
    }
}
