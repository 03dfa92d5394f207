import CKestrinProfile

/// What is to be done. The functions of ``ListWrites`` and ``ProfileOperations`` make it.
public struct Call: Sendable {
    /// Which operation it is.
    public let operation: ProfileOperation
    var profileID: String?
    var brandID: String?
    var videoID: String?
    var showID: String?
    var userName: String?
    var search: String?
    var progress: Duration?
    var isComplete: Bool?
    var user: User?
    var shows: [UserProfileElement] = []

    init(_ operation: ProfileOperation, _ fill: (inout Call) -> Void = { _ in }) {
        self.operation = operation
        fill(&self)
    }

    func view(in memory: CallMemory) -> kestrin_call {
        var view = kestrin_call()
        view.size = MemoryLayout<kestrin_call>.stride
        view.operation = operation.rawValue
        view.profile_id = memory.text(profileID)
        view.brand_id = memory.text(brandID)
        view.video_id = memory.text(videoID)
        view.show_id = memory.text(showID)
        view.user_name = memory.text(userName)
        view.search = memory.text(search)
        view.progress = kestrin_optional_int64(progress?.wholeSeconds)
        view.is_complete = kestrin_optional_bool(isComplete)
        view.user = user.map { memory.one($0.view(in: memory)) }
        view.shows = UserProfileElement.view(of: shows, in: memory)
        return view
    }
}
