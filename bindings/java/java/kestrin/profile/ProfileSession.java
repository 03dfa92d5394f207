package kestrin.profile;

import java.util.concurrent.CompletableFuture;
import java.util.function.Function;

/**
 * One profile of a household, and all operations as it does them: it obtains and renews its bind,
 * and repeats as the retry policy says. Any thread. Close it; what nobody can reach any more is
 * closed when it is collected, too.
 */
public final class ProfileSession extends Operations implements AutoCloseable {
    private final Household household;
    private final Handle handle;

    ProfileSession(Household household, SessionOptions options) {
        this.household = household;
        byte[] bytes = options.toBytes();
        handle =
                household
                        .handle()
                        .use(
                                pointer ->
                                        Handle.made(
                                                this,
                                                "session",
                                                place ->
                                                        Native.createSession(pointer, bytes, place),
                                                Native::releaseSession));
    }

    /** The same profile, whose writes are kept by an outbox instead of being sent. */
    public LaterSession later(Outbox outbox) {
        return new LaterSession(this, outbox);
    }

    /** Ends the session. Its requests go on. */
    @Override
    public void close() {
        handle.close();
    }

    @Override
    <T> CompletableFuture<T> start(Call call, Function<Result, T> value) {
        return Requests.start(
                household,
                household.executor(),
                value,
                (context, request) -> {
                    byte[] bytes = call.toBytes();
                    return handle.use(
                            session -> Native.startSession(session, bytes, context, request));
                });
    }

    Household household() {
        return household;
    }

    Handle handle() {
        return handle;
    }
}
