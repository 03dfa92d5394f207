package kestrin.profile;

import java.util.concurrent.CompletableFuture;
import java.util.concurrent.Executor;

/**
 * A household: its sessions, and what they share. Its binds are those of the process. Any thread.
 *
 * <p>Close it; what nobody can reach any more is closed when it is collected, too. A request that is
 * under way keeps it.
 */
public final class Household implements AutoCloseable {
    private final Executor executor;
    private final Handle handle;

    /** With {@link HouseholdOptions#defaults}. */
    public Household() {
        this(HouseholdOptions.defaults());
    }

    /** @throws InvalidCallException  if the policy is none */
    public Household(HouseholdOptions options) {
        executor = options.executor();
        byte[] retry = options.retry().toBytes();
        handle =
                options.log() == null
                        ? made(retry, 0)
                        : Events.register(
                                new Listener<>(executor, HouseholdEvent::read, options.log()),
                                log -> made(retry, log));
    }

    private Handle made(byte[] retry, long log) {
        return Handle.made(
                this,
                "household",
                place -> Native.createHousehold(retry, log, place),
                Native::releaseHousehold);
    }

    /**
     * Connects to the configured hosts, so that later calls find a connection. Gives how many have
     * answered; never an error.
     */
    public CompletableFuture<Long> warmUp() {
        return Requests.start(
                this,
                executor,
                Result::number,
                (context, request) ->
                        handle.use(household -> Native.warmUp(household, context, request)));
    }

    /** A session of the household's parent, as it is configured now. */
    public ProfileSession session() {
        return session(SessionOptions.parent());
    }

    /** A session of a profile. Sends nothing. */
    public ProfileSession session(String profileID) {
        return session(SessionOptions.of(profileID));
    }

    /** The same with options. */
    public ProfileSession session(SessionOptions options) {
        return new ProfileSession(this, options);
    }

    /** Opens an outbox in memory; see {@link #openOutbox(OutboxOptions)}. */
    public Outbox openOutbox() {
        return openOutbox(OutboxOptions.defaults());
    }

    /**
     * Opens an outbox that sends as the profiles of the household, and begins to send. Once the
     * household is closed its writes wait for the next start.
     */
    public Outbox openOutbox(OutboxOptions options) {
        return new Outbox(this, options);
    }

    /** A playback reporter; one for each time that somebody watches. */
    public PlaybackReporter reporter(ReporterOptions options) {
        return new PlaybackReporter(this, options);
    }

    /** Ends the household; all its requests end with {@link java.util.concurrent.CancellationException}. */
    @Override
    public void close() {
        handle.close();
    }

    Executor executor() {
        return executor;
    }

    Handle handle() {
        return handle;
    }
}
