import Foundation
import KestrinProfile

// Puts a video on the parent's watch list, and shows the list: first CONFIGURATION VIDEO
let arguments = CommandLine.arguments
guard arguments.count == 3 else {
    print("usage: first CONFIGURATION VIDEO")
    exit(2)
}
do {
    try ConfigurationManager.configure(String(contentsOfFile: arguments[1], encoding: .utf8))
    let parent = try Household().session()
    try await parent.addWatchListVideo(arguments[2])
    for each in try await parent.watchList().elements ?? [] {
        print(each.id ?? "?")
    }
} catch let problem as KestrinError {
    print("\(problem.message)\n\(problem.advice)")
    exit(1)
}
