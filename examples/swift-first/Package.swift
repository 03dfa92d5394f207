// swift-tools-version: 6.0

import PackageDescription

let package = Package(
    name: "first",
    platforms: [.macOS(.v13)],
    dependencies: [.package(path: "../../bindings/swift")],
    targets: [
        .executableTarget(
            name: "first", dependencies: [.product(name: "KestrinProfile", package: "swift")])
    ],
    swiftLanguageModes: [.v6]
)
