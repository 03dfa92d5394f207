package kestrin.profile;

/** The operations, in the order of the service's own. */
public enum Operation {
    /** Obtains the right to act for a profile. */
    ANONYMOUS_BIND,
    /** Asks whether a name may be given to a profile. */
    VALIDATE_PROFILE_NAME,
    /** Creates a profile. */
    CREATE_PROFILE,
    /** The household's profiles. */
    GET_PROFILES,
    /** Changes a profile. */
    EDIT_PROFILE,
    /** Deletes a profile with its lists. */
    DELETE_PROFILE,
    /** The viewing history. */
    GET_HISTORY,
    /** The history's entry of one video. */
    GET_VIDEO_HISTORY,
    /** Records how far a video was watched. */
    ADD_HISTORY_VIDEO,
    /** Removes a video from the history. */
    DELETE_VIDEO_HISTORY,
    /** Empties the history. */
    CLEAR_HISTORY,
    /** The favourite shows. */
    GET_FAVORITES,
    /** Adds a favourite show. */
    ADD_FAVORITE_SHOW,
    /** Adds several favourite shows. */
    ADD_FAVORITE_SHOWS,
    /** Removes a favourite show. */
    DELETE_FAVORITE_SHOW,
    /** Empties the favourites. */
    CLEAR_FAVORITES,
    /** The watch list. */
    GET_WATCH_LIST,
    /** Adds a video to the watch list. */
    ADD_WATCH_LIST_VIDEO,
    /** Removes a video from the watch list. */
    DELETE_WATCH_LIST_VIDEO,
    /** Empties the watch list. */
    CLEAR_WATCH_LIST,
    /** Records a search. */
    ADD_SEARCH_HISTORY,
    /** Deletes the searches. */
    DELETE_SEARCH_HISTORY;

    /** The service's name of the operation, e.g. "personalization-history-get". */
    public String serviceName() {
        return Native.text(Native.operationName(code()));
    }

    int code() {
        return ordinal() + 1;
    }

    /** Null for a number that is none. */
    static Operation of(int code) {
        Operation[] all = values();
        return code >= 1 && code <= all.length ? all[code - 1] : null;
    }
}
