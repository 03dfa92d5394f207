// swift-tools-version: 6.0

import PackageDescription

// On Apple platforms the library comes as an XCFramework, made of its C interface for each of them:
// KESTRIN_XCFRAMEWORK names it, below this folder. Elsewhere pkg-config finds an installed KestrinC.
let library: Target =
    if let framework = Context.environment["KESTRIN_XCFRAMEWORK"] {
        .binaryTarget(name: "CKestrinProfile", path: framework)
    } else {
        .systemLibrary(name: "CKestrinProfile", pkgConfig: "KestrinC")
    }

let package = Package(
    name: "KestrinProfile",
    platforms: [.macOS(.v13), .iOS(.v16), .tvOS(.v16), .watchOS(.v9), .visionOS(.v1)],
    products: [.library(name: "KestrinProfile", targets: ["KestrinProfile"])],
    targets: [
        library,
        .target(name: "KestrinProfile", dependencies: ["CKestrinProfile"]),
        // Not a test target: it plays against the development service, and has a mode that measures.
        .executableTarget(
            name: "kestrin-swift-tests", dependencies: ["KestrinProfile", "CKestrinProfile"],
            path: "Tests"),
    ],
    swiftLanguageModes: [.v6]
)
