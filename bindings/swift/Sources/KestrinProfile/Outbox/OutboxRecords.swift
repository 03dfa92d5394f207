import CKestrinProfile
import Foundation

/// A change of a profile's lists, as an outbox keeps it.
public struct OutboxWrite: Sendable, Hashable {
    /// Whose lists.
    public var profileID: String
    /// Nil: none.
    public var brandID: String?
    /// One that changes a list; nil: something that this version does not know.
    public var operation: ProfileOperation?
    /// The video, the show or the search text; nil for whole lists.
    public var itemID: String?
    /// Of ``ProfileOperation/addFavoriteShows``.
    public var shows: [UserProfileElement]
    /// How far a video was watched, in whole seconds.
    public var progress: Duration?
    /// Whether it was watched to the end; nil: the service is not told.
    public var isComplete: Bool?

    /// A write of any profile, for ``Outbox/add(_:)``.
    public init(
        profileID: String, brandID: String? = nil, operation: ProfileOperation,
        itemID: String? = nil, shows: [UserProfileElement] = [], progress: Duration? = nil,
        isComplete: Bool? = nil
    ) {
        self.profileID = profileID
        self.brandID = brandID
        self.operation = operation
        self.itemID = itemID
        self.shows = shows
        self.progress = progress
        self.isComplete = isComplete
    }

    init(_ view: kestrin_write) {
        profileID = view.profile_id.text
        brandID = view.brand_id.string
        operation = ProfileOperation(rawValue: view.operation)
        itemID = view.item_id.string
        shows = UserProfileElement.all(view.shows)
        progress = view.progress.seconds
        isComplete = view.is_complete.bool
    }

    func view(in memory: CallMemory) -> kestrin_write {
        var view = kestrin_write()
        view.size = MemoryLayout<kestrin_write>.stride
        view.profile_id = memory.text(profileID)
        view.brand_id = memory.text(brandID)
        view.operation = operation?.rawValue ?? 0
        view.item_id = memory.text(itemID)
        view.shows = UserProfileElement.view(of: shows, in: memory)
        view.progress = kestrin_optional_int64(progress?.wholeSeconds)
        view.is_complete = kestrin_optional_bool(isComplete)
        return view
    }
}

/// A write in an outbox.
public struct OutboxEntry: Sendable, Hashable {
    /// What was accepted later has a higher one; 0: not accepted.
    public var number: Int64
    /// What is to be done; nil in an event about the outbox itself.
    public var write: OutboxWrite?
    /// By the device's clock.
    public var acceptedAt: Date
    /// Why the service does not take it; nil while it waits.
    public var refusal: Refusal?

    /// Why the service does not take a write.
    public struct Refusal: Sendable, Hashable {
        /// By the device's clock.
        public var at: Date
        /// Of the reply; 0: the request could not be made.
        public var status: Int
        /// Of the reply's problem document (RFC 9457), or what else is known.
        public var title: String
        /// The same.
        public var detail: String

        init(_ view: kestrin_refusal) {
            at = Date(millisecondsSince1970: view.at_ms)
            status = Int(view.status)
            title = view.title.text
            detail = view.detail.text
        }
    }

    init(_ view: kestrin_kept) {
        number = view.number
        write = view.write.map { OutboxWrite($0.pointee) }
        acceptedAt = Date(millisecondsSince1970: view.accepted_at_ms)
        refusal = view.refusal.map { Refusal($0.pointee) }
    }
}

/// How an outbox was found, or stands once it does nothing.
public struct OutboxState: Sendable, Hashable {
    /// How many writes wait.
    public var waiting: Int
    /// How many writes the service has refused.
    public var refused: Int
    /// What of the store was damaged, for people.
    public var warnings: [String]

    init(_ view: kestrin_outbox_state) {
        waiting = view.waiting
        refused = view.refused
        warnings = elements(view.warnings.first, view.warnings.count).map(\.text)
    }
}

/// What happened to a write, or to the outbox.
public struct OutboxEvent: Sendable, Hashable {
    /// What it is.
    public var kind: Kind
    /// The write; of ``Kind/storeFailed`` it says nothing.
    public var entry: OutboxEntry?
    /// For people; no secrets.
    public var text: String
    /// Of ``Kind/superseded``: the number of the later write.
    public var by: Int64?
    /// Of ``Kind/delayed``: how long it waits.
    public var delay: Duration

    /// What can happen; docs/outbox.md says more of each.
    public enum Kind: Int32, Sendable, Hashable, CaseIterable {
        /// The service has taken the write.
        case sent = 0
        /// A later write makes it needless.
        case superseded
        /// The service has something newer.
        case droppedAsStale
        /// The service does not take it; it is kept among the refused ones.
        case refused
        /// A refused write had to make room.
        case forgotten
        /// It became too old.
        case expired
        /// ``Outbox/drop(_:)`` was called.
        case dropped
        /// The outbox was full and has not accepted it.
        case overflow
        /// Its profile has no bind, and none can be had.
        case waitsForBind
        /// The service could not be reached.
        case delayed
        /// The store failed.
        case storeFailed
        /// Something that this version does not know.
        case unknown = -1
    }

    init(_ view: kestrin_outbox_event) {
        kind = Kind(rawValue: view.kind) ?? .unknown
        entry = view.entry.map { OutboxEntry($0.pointee) }
        text = view.text.text
        by = view.by.number
        delay = .milliseconds(view.delay_ms)
    }
}
