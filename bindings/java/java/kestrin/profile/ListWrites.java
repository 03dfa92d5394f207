package kestrin.profile;

import java.time.Duration;
import java.util.List;
import java.util.concurrent.CompletableFuture;

/**
 * The operations that change a profile's lists. None throws: what is wrong arrives in the future.
 *
 * @param <R>  what comes of a change
 */
public abstract sealed class ListWrites<R> permits Operations, LaterSession {
    ListWrites() {}

    /** Begins what changes a list. */
    abstract CompletableFuture<R> write(Call call);

    /** Records how far a video was watched, without a word of whether to the end. */
    public final CompletableFuture<R> addHistoryVideo(String videoID, Duration progress) {
        return addHistoryVideo(videoID, progress, null);
    }

    /**
     * Records how far a video was watched.
     *
     * @param progress    0 or more, counted in whole seconds
     * @param isComplete  whether it was watched to the end; null: the service is not told
     */
    public final CompletableFuture<R> addHistoryVideo(
            String videoID, Duration progress, Boolean isComplete) {
        return write(
                Call.of(Operation.ADD_HISTORY_VIDEO)
                        .videoID(videoID)
                        .progress(progress)
                        .isComplete(isComplete));
    }

    /** Removes a video from the history. */
    public final CompletableFuture<R> deleteVideoHistory(String videoID) {
        return write(Call.of(Operation.DELETE_VIDEO_HISTORY).videoID(videoID));
    }

    /** Empties the history. */
    public final CompletableFuture<R> clearHistory() {
        return write(Call.of(Operation.CLEAR_HISTORY));
    }

    /** Adds a favourite show. */
    public final CompletableFuture<R> addFavoriteShow(String showID) {
        return write(Call.of(Operation.ADD_FAVORITE_SHOW).showID(showID));
    }

    /** Adds several shows at once; the entries carry their content kind. */
    public final CompletableFuture<R> addFavoriteShows(List<UserProfileElement> shows) {
        return write(Call.of(Operation.ADD_FAVORITE_SHOWS).shows(shows));
    }

    /** Removes a favourite show. */
    public final CompletableFuture<R> deleteFavoriteShow(String showID) {
        return write(Call.of(Operation.DELETE_FAVORITE_SHOW).showID(showID));
    }

    /** Empties the favourites. */
    public final CompletableFuture<R> clearFavorites() {
        return write(Call.of(Operation.CLEAR_FAVORITES));
    }

    /** Adds a video to the watch list. */
    public final CompletableFuture<R> addWatchListVideo(String videoID) {
        return write(Call.of(Operation.ADD_WATCH_LIST_VIDEO).videoID(videoID));
    }

    /** Removes a video from the watch list. */
    public final CompletableFuture<R> deleteWatchListVideo(String videoID) {
        return write(Call.of(Operation.DELETE_WATCH_LIST_VIDEO).videoID(videoID));
    }

    /** Empties the watch list. */
    public final CompletableFuture<R> clearWatchList() {
        return write(Call.of(Operation.CLEAR_WATCH_LIST));
    }

    /** Records a search. */
    public final CompletableFuture<R> addSearchHistory(String search) {
        return write(Call.of(Operation.ADD_SEARCH_HISTORY).search(search));
    }

    /** Deletes the searches. */
    public final CompletableFuture<R> deleteSearchHistory() {
        return write(Call.of(Operation.DELETE_SEARCH_HISTORY));
    }
}
