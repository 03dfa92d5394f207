/// The operations that change a profile's lists: ``Profile`` and ``ProfileSession`` send them,
/// ``LaterSession`` has them kept.
public protocol ListWrites: Sendable {
    /// What comes of a change.
    associatedtype Written: Sendable

    /// Does what the functions below ask for.
    func write(_ call: Call) async throws -> Written
}

extension ListWrites {
    /// Records how far a video was watched.
    ///
    /// - Parameters:
    ///   - progress: 0 or more, counted in whole seconds
    ///   - isComplete: whether it was watched to the end; nil: the service is not told
    @discardableResult
    public func addHistoryVideo(
        _ videoID: String, progress: Duration, isComplete: Bool? = nil
    ) async throws -> Written {
        try await write(
            Call(.addHistoryVideo) {
                $0.videoID = videoID
                $0.progress = progress
                $0.isComplete = isComplete
            })
    }

    /// Removes a video from the history.
    @discardableResult
    public func deleteVideoHistory(_ videoID: String) async throws -> Written {
        try await write(Call(.deleteVideoHistory) { $0.videoID = videoID })
    }

    /// Empties the history.
    @discardableResult
    public func clearHistory() async throws -> Written {
        try await write(Call(.clearHistory))
    }

    /// Adds a favourite show.
    @discardableResult
    public func addFavoriteShow(_ showID: String) async throws -> Written {
        try await write(Call(.addFavoriteShow) { $0.showID = showID })
    }

    /// Adds several shows at once; the entries carry their content kind.
    @discardableResult
    public func addFavoriteShows(_ shows: [UserProfileElement]) async throws -> Written {
        try await write(Call(.addFavoriteShows) { $0.shows = shows })
    }

    /// Removes a favourite show.
    @discardableResult
    public func deleteFavoriteShow(_ showID: String) async throws -> Written {
        try await write(Call(.deleteFavoriteShow) { $0.showID = showID })
    }

    /// Empties the favourites.
    @discardableResult
    public func clearFavorites() async throws -> Written {
        try await write(Call(.clearFavorites))
    }

    /// Adds a video to the watch list.
    @discardableResult
    public func addWatchListVideo(_ videoID: String) async throws -> Written {
        try await write(Call(.addWatchListVideo) { $0.videoID = videoID })
    }

    /// Removes a video from the watch list.
    @discardableResult
    public func deleteWatchListVideo(_ videoID: String) async throws -> Written {
        try await write(Call(.deleteWatchListVideo) { $0.videoID = videoID })
    }

    /// Empties the watch list.
    @discardableResult
    public func clearWatchList() async throws -> Written {
        try await write(Call(.clearWatchList))
    }

    /// Records a search.
    @discardableResult
    public func addSearchHistory(_ search: String) async throws -> Written {
        try await write(Call(.addSearchHistory) { $0.search = search })
    }

    /// Deletes the searches.
    @discardableResult
    public func deleteSearchHistory() async throws -> Written {
        try await write(Call(.deleteSearchHistory))
    }
}
