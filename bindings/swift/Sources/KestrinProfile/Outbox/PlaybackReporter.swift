import CKestrinProfile

/// Reports how far a video was watched, in few writes. Told something after ``close()`` it does
/// nothing.
///
/// It ends with the last who has it, or with ``close()``.
public final class PlaybackReporter: Sendable {
    private let handle: Handle
    private let household: Household
    private let outbox: Outbox?

    init(_ household: Household, _ options: ReporterOptions) throws {
        self.household = household
        outbox = options.outbox
        handle = try Handle("playback reporter", release: kestrin_reporter_release) { place in
            try household.handle.use { household in
                guard let outbox = options.outbox else {
                    return Self.create(household, nil, options, place)
                }
                return try outbox.handle.use { Self.create(household, $0, options, place) }
            }
        }
    }

    /// The player is at a position; nil: unknown, and nothing changes.
    public func position(_ position: Duration?) {
        tell { kestrin_reporter_position($0, Self.milliseconds(position)) }
    }

    /// Somebody has moved the player; nil: until a position is told, none is known.
    public func moved(_ position: Duration?) {
        tell { kestrin_reporter_moved($0, Self.milliseconds(position)) }
    }

    /// Writes at once.
    public func paused() {
        tell { kestrin_reporter_paused($0) }
    }

    /// Writes at once.
    public func inBackground() {
        tell { kestrin_reporter_in_background($0) }
    }

    /// The video was watched to the end; writes at once.
    public func finished() {
        tell { kestrin_reporter_finished($0) }
    }

    /// Writes what is known and was not written, and ends. May wait for the disk.
    public func close() {
        handle.close()
    }

    // A player has nobody to throw to; what is not written is told to `failed`.
    private func tell(_ function: (OpaquePointer) -> kestrin_status) {
        _ = try? handle.use(function)
    }

    private static func milliseconds(_ position: Duration?) -> Int64 {
        position?.milliseconds ?? -1
    }

    private static func create(
        _ household: OpaquePointer, _ outbox: OpaquePointer?, _ options: ReporterOptions,
        _ place: UnsafeMutablePointer<OpaquePointer?>
    ) -> kestrin_status {
        CallMemory.with { memory in
            var view = kestrin_reporter_options()
            view.size = MemoryLayout<kestrin_reporter_options>.stride
            view.profile_id = memory.text(options.profileID)
            view.brand_id = memory.text(options.brandID)
            view.video_id = memory.text(options.videoID)
            view.interval_ms = options.interval?.milliseconds ?? 0
            view.context = Failures(options.failed).retained()
            view.failed = { context, error in
                if let error { Failures.at(context).failed?(KestrinError(error.pointee)) }
            }
            view.release_context = { Failures.release($0) }
            return kestrin_reporter_create(household, outbox, &view, place)
        }
    }
}

/// Who is told of writes that were not taken.
private final class Failures: Context {
    let failed: (@Sendable (KestrinError) -> Void)?

    init(_ failed: (@Sendable (KestrinError) -> Void)?) {
        self.failed = failed
    }
}

/// What is being watched, by whom.
public struct ReporterOptions: Sendable {
    /// Who watches.
    public var profileID: String
    /// Nil: none.
    public var brandID: String?
    /// What is watched.
    public var videoID: String
    /// Where the writes are kept; nil: they are sent as the household's profile.
    public var outbox: Outbox?
    /// Between two writes at the least; nil: the default, 10 s.
    public var interval: Duration?
    /// Told why a write was not taken, where that happens; it must not block.
    public var failed: (@Sendable (KestrinError) -> Void)?

    /// A profile that watches a video.
    public init(
        profileID: String, brandID: String? = nil, videoID: String, outbox: Outbox? = nil,
        interval: Duration? = nil, failed: (@Sendable (KestrinError) -> Void)? = nil
    ) {
        self.profileID = profileID
        self.brandID = brandID
        self.videoID = videoID
        self.outbox = outbox
        self.interval = interval
        self.failed = failed
    }
}
