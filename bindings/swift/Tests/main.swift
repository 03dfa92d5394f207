// kestrin-swift-tests SERVER CONFIGURATION FIRST [PART OF A TEST'S NAME | bench]
//
// Plays against the development service SERVER, with the configuration that the project ships, and with the
// program of examples/swift-first. The tests run one after the other: they share the process's configuration.

import Foundation

/// At once, however the process ends.
func say(_ line: String) {
    FileHandle.standardOutput.write(Data("\(line)\n".utf8))
}

let arguments = CommandLine.arguments
guard arguments.count >= 4 else {
    say("usage: kestrin-swift-tests SERVER CONFIGURATION FIRST [PART OF A TEST'S NAME | bench]")
    exit(2)
}
Service.program = arguments[1]
FakeTransport.configuration = arguments[2]
FirstProgramTests.program = arguments[3]
let part = arguments.count > 4 ? arguments[4] : ""

if part == "bench" {
    try await Bench.run()
    exit(0)
}

let tests = EveningTests.all + ErrorTests.all + CancellationTests.all + OutboxTests.all + HookTests.all
    + FirstProgramTests.all
let chosen = tests.filter { part.isEmpty || $0.name.contains(part) }
var failed = 0
for test in chosen {
    do {
        try await test.run()
        say("ok      \(test.name)")
    } catch {
        failed += 1
        say("FAILED  \(test.name)\n        \(error)")
    }
}
say("\(chosen.count) tests, \(failed) failed")
exit(failed == 0 && !chosen.isEmpty ? 0 : 1)
