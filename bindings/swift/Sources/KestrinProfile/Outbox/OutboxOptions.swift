import CKestrinProfile
import Foundation

/// The bounds and times of an outbox; docs/outbox.md says more of each.
public struct OutboxOptions: Sendable, Hashable {
    /// Where writes are kept; nil: in memory, as long as the outbox lives.
    public var file: URL?
    /// How many writes may wait, 1 or more.
    public var maxEntries: Int
    /// An older one is dropped when its turn comes.
    public var maxAge: Duration
    /// How many refused writes are kept.
    public var maxRefused: Int
    /// An older write is compared with what the service has.
    public var compareAfter: Duration
    /// The first wait after the service could not be reached; it doubles.
    public var firstDelay: Duration
    /// Up to this.
    public var longestDelay: Duration
    /// That writes were sent is stored for several at once, after this time.
    public var removalDelay: Duration
    /// How long a request may be on its way.
    public var longestRequest: Duration

    /// The library's own.
    ///
    /// - Parameter file: where writes are kept; nil: in memory, as long as the outbox lives
    public init(file: URL? = nil) {
        var view = kestrin_outbox_options()
        _ = kestrin_outbox_options_init(&view, MemoryLayout<kestrin_outbox_options>.stride)
        self.file = file
        maxEntries = view.max_entries
        maxAge = .milliseconds(view.max_age_ms)
        maxRefused = view.max_refused
        compareAfter = .milliseconds(view.compare_after_ms)
        firstDelay = .milliseconds(view.first_delay_ms)
        longestDelay = .milliseconds(view.longest_delay_ms)
        removalDelay = .milliseconds(view.removal_delay_ms)
        longestRequest = .milliseconds(view.longest_request_ms)
    }

    func view(in memory: CallMemory) -> kestrin_outbox_options {
        var view = kestrin_outbox_options()
        view.size = MemoryLayout<kestrin_outbox_options>.stride
        view.file = memory.text(file?.path)
        // The library refuses 0 entries, and so what is below.
        view.max_entries = max(maxEntries, 0)
        view.max_age_ms = maxAge.milliseconds
        view.max_refused = max(maxRefused, 0)
        view.compare_after_ms = compareAfter.milliseconds
        view.first_delay_ms = firstDelay.milliseconds
        view.longest_delay_ms = longestDelay.milliseconds
        view.removal_delay_ms = removalDelay.milliseconds
        view.longest_request_ms = longestRequest.milliseconds
        return view
    }
}
