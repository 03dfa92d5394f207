import CKestrinProfile
import Foundation

/// One of a profile's lists, as the service has it.
public struct UserProfile: Sendable, Hashable {
    /// The list's identifier.
    public var id: String?
    /// How many entries the service keeps in it; nil: it does not say.
    public var maxSize: Int?
    /// In the service's order; nil: the service sent no usable list, which is another thing than an
    /// empty one.
    public var elements: [UserProfileElement]?

    /// A list.
    public init(id: String? = nil, maxSize: Int? = nil, elements: [UserProfileElement]? = nil) {
        self.id = id
        self.maxSize = maxSize
        self.elements = elements
    }

    init(_ view: kestrin_list) {
        id = view.id.string
        maxSize = view.max_size.number.map { Int(clamping: $0) }
        elements = view.has_entries ? UserProfileElement.all(view.entries) : nil
    }
}

/// An entry of a list: a video of the history, a favourite show, a video to watch.
public struct UserProfileElement: Sendable, Hashable {
    /// The identifier of the video or show.
    public var id: String?
    /// "SHOW", "VIDEO", "GAME", "COLLECTION" or what else the service has sent.
    public var type: String?
    /// How far it was watched, in whole seconds; nil: the service does not say.
    public var progress: Duration?
    /// Whether it was watched to the end; nil: the service does not say.
    public var isCompleted: Bool?
    /// When it was added, to the microsecond; nil: the service does not say.
    public var autoAddTimestamp: Date?

    /// An entry.
    public init(
        id: String?, type: String? = nil, progress: Duration? = nil, isCompleted: Bool? = nil,
        autoAddTimestamp: Date? = nil
    ) {
        self.id = id
        self.type = type
        self.progress = progress
        self.isCompleted = isCompleted
        self.autoAddTimestamp = autoAddTimestamp
    }

    /// A show, for ``ListWrites/addFavoriteShows(_:)``.
    public static func show(_ id: String) -> UserProfileElement {
        UserProfileElement(id: id, type: "SHOW")
    }

    init(_ view: kestrin_entry) {
        id = view.id.string
        type = view.type.string
        progress = view.progress.seconds
        isCompleted = view.is_completed.bool
        autoAddTimestamp = view.auto_add_timestamp.date
    }

    static func all(_ entries: kestrin_entries) -> [UserProfileElement] {
        KestrinProfile.elements(entries.first, entries.count, entries.stride) {
            UserProfileElement($0.pointee)
        }
    }

    static func view(of elements: [UserProfileElement], in memory: CallMemory) -> kestrin_entries {
        let entries = elements.map { element in
            var view = kestrin_entry()
            view.size = MemoryLayout<kestrin_entry>.stride
            view.id = memory.text(element.id)
            view.type = memory.text(element.type)
            view.progress = kestrin_optional_int64(element.progress?.wholeSeconds)
            view.is_completed = kestrin_optional_bool(element.isCompleted)
            view.auto_add_timestamp = kestrin_optional_int64(
                element.autoAddTimestamp?.microsecondsSince1970)
            return view
        }
        return kestrin_entries(
            first: memory.array(entries), count: entries.count,
            stride: MemoryLayout<kestrin_entry>.stride)
    }
}
