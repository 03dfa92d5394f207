package kestrin.profile;

import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.function.Function;

/**
 * All 22 operations. None throws: what is wrong arrives in the future, as a {@link KestrinException}; as a {@link
 * java.util.concurrent.CancellationException} if the household was closed, and as an {@link IllegalStateException}
 * if the session was closed before the call.
 */
public abstract sealed class Operations extends ListWrites<Response> permits Profile, ProfileSession {
    Operations() {}

    /** Begins an operation. */
    abstract <T> CompletableFuture<T> start(Call call, Function<Result, T> value);

    @Override
    final CompletableFuture<Response> write(Call call) {
        return start(call, Result::response);
    }

    /** The right to act for the profile: the held one at once, or a new one, which is then held. */
    public final CompletableFuture<AnonymousBind> bind() {
        return start(Call.of(Operation.ANONYMOUS_BIND), Result::bind);
    }

    /** Asks whether a name may be given to a profile. */
    public final CompletableFuture<Response> validateProfileName(String name) {
        return write(Call.of(Operation.VALIDATE_PROFILE_NAME).userName(name));
    }

    /** Creates a profile, and gives it as the service knows it, with its identifier. */
    public final CompletableFuture<User> createProfile(User user) {
        return start(Call.of(Operation.CREATE_PROFILE).user(user), Result::user);
    }

    /** The household's profiles, in the service's order. */
    public final CompletableFuture<List<User>> profiles() {
        return start(Call.of(Operation.GET_PROFILES), Result::users);
    }

    /** Gives the profile with the user's identifier the user's name, avatar, group and default mark. */
    public final CompletableFuture<Response> editProfile(User user) {
        return write(Call.of(Operation.EDIT_PROFILE).user(user));
    }

    /** Deletes a profile with all its lists. */
    public final CompletableFuture<Response> deleteProfile(String profileID) {
        return write(Call.of(Operation.DELETE_PROFILE).profileID(profileID));
    }

    /** The viewing history: videos with progress, the latest first. */
    public final CompletableFuture<UserProfile> history() {
        return start(Call.of(Operation.GET_HISTORY), Result::list);
    }

    /** The history's entry of one video. */
    public final CompletableFuture<UserProfile> videoHistory(String videoID) {
        return start(Call.of(Operation.GET_VIDEO_HISTORY).videoID(videoID), Result::list);
    }

    /** The favourite shows. */
    public final CompletableFuture<UserProfile> favorites() {
        return start(Call.of(Operation.GET_FAVORITES), Result::list);
    }

    /** The watch list: videos to watch. */
    public final CompletableFuture<UserProfile> watchList() {
        return start(Call.of(Operation.GET_WATCH_LIST), Result::list);
    }
}
