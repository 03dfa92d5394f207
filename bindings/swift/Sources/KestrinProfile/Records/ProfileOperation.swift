import CKestrinProfile

/// The operations, in the order of the service's own.
public enum ProfileOperation: Int32, Sendable, Hashable, CaseIterable {
    /// Obtains the right to act for a profile.
    case anonymousBind = 1
    /// Asks whether a name may be given to a profile.
    case validateProfileName
    /// Creates a profile.
    case createProfile
    /// The household's profiles.
    case getProfiles
    /// Changes a profile.
    case editProfile
    /// Deletes a profile with its lists.
    case deleteProfile
    /// The viewing history.
    case getHistory
    /// The history's entry of one video.
    case getVideoHistory
    /// Records how far a video was watched.
    case addHistoryVideo
    /// Removes a video from the history.
    case deleteVideoHistory
    /// Empties the history.
    case clearHistory
    /// The favourite shows.
    case getFavorites
    /// Adds a favourite show.
    case addFavoriteShow
    /// Adds several favourite shows.
    case addFavoriteShows
    /// Removes a favourite show.
    case deleteFavoriteShow
    /// Empties the favourites.
    case clearFavorites
    /// The watch list.
    case getWatchList
    /// Adds a video to the watch list.
    case addWatchListVideo
    /// Removes a video from the watch list.
    case deleteWatchListVideo
    /// Empties the watch list.
    case clearWatchList
    /// Records a search.
    case addSearchHistory
    /// Deletes the searches.
    case deleteSearchHistory

    /// The service's name of the operation, e.g. "personalization-history-get".
    public var serviceName: String { String(cString: kestrin_operation_name(rawValue)) }
}
