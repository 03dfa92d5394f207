package kestrin.profile;

import java.util.Objects;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.Executor;
import java.util.concurrent.ForkJoinPool;
import java.util.function.Function;

/**
 * The operations, each one request and nothing else: nothing is repeated, and no bind obtained. An
 * application is better off with a {@link Household}. A value without state; any thread.
 */
public final class Profile extends Operations {
    private final AnonymousBind bind;
    private final String profileID;
    private final String brandID;
    private final Executor executor;

    /**
     * With the held binds: of the parent for the household's profiles, else of the selected profile.
     * Futures are completed on {@link ForkJoinPool#commonPool}.
     */
    public Profile() {
        this(null, null, null, ForkJoinPool.commonPool());
    }

    private Profile(AnonymousBind bind, String profileID, String brandID, Executor executor) {
        this.bind = bind;
        this.profileID = profileID;
        this.brandID = brandID;
        this.executor = executor;
    }

    /** The same with a bind; null: the held ones. */
    public Profile withBind(AnonymousBind other) {
        return new Profile(other, profileID, brandID, executor);
    }

    /** The same whose {@link #bind} is of this profile; null: the household's parent. */
    public Profile withProfileID(String other) {
        return new Profile(bind, other, brandID, executor);
    }

    /** The same with a brand; null: the configured one. */
    public Profile withBrandID(String other) {
        return new Profile(bind, profileID, other, executor);
    }

    /** The same whose futures are completed by an executor. */
    public Profile withExecutor(Executor other) {
        return new Profile(bind, profileID, brandID, Objects.requireNonNull(other, "executor"));
    }

    @Override
    <T> CompletableFuture<T> start(Call call, Function<Result, T> value) {
        return Requests.start(
                null,
                executor,
                value,
                (context, request) ->
                        Native.startPlain(
                                bindFor(call), completed(call).toBytes(), context, request));
    }

    private Call completed(Call call) {
        if (call.operation() == Operation.ANONYMOUS_BIND) call.profileID(profileID);
        return call.brandID(brandID);
    }

    /** These two take none. */
    private byte[] bindFor(Call call) {
        Operation operation = call.operation();
        if (bind == null
                || operation == Operation.ANONYMOUS_BIND
                || operation == Operation.DELETE_SEARCH_HISTORY) return null;
        WireWriter writer = new WireWriter();
        AnonymousBind.write(writer, bind);
        return writer.toBytes();
    }
}
