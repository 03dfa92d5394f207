package kestrin.profile;

import java.util.List;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.function.Consumer;
import java.util.function.Function;

/**
 * Keeps writes until the service has taken them; docs/outbox.md. Any thread. Close it; what nobody
 * can reach any more is closed when it is collected, too.
 */
public final class Outbox implements AutoCloseable {
    private final Household household;
    private final Handle handle;
    // One that nobody else keeps goes on.
    private final Set<Watch> watches = ConcurrentHashMap.newKeySet();

    Outbox(Household household, OutboxOptions options) {
        this.household = household;
        byte[] bytes = options.toBytes();
        handle =
                household
                        .handle()
                        .use(
                                pointer ->
                                        Handle.made(
                                                this,
                                                "outbox",
                                                place ->
                                                        Native.createOutbox(pointer, bytes, place),
                                                Native::releaseOutbox));
    }

    /** Ends when the store was opened: what was found. */
    public CompletableFuture<OutboxState> opening() {
        return start(Result::outboxState, Native::opening);
    }

    /** Ends once nothing is being sent or stored. */
    public CompletableFuture<OutboxState> settled() {
        return start(Result::outboxState, Native::settled);
    }

    /** Keeps a write of any profile. */
    public CompletableFuture<OutboxEntry> add(OutboxWrite write) {
        return start(
                Result::entry,
                (outbox, context, request) ->
                        Native.addWrite(outbox, write.toBytes(), context, request));
    }

    /** Drops a write that waits or was refused; gives whether there was one. */
    public CompletableFuture<Boolean> drop(long number) {
        return start(
                result -> result.number() > 0,
                (outbox, context, request) -> Native.dropWrite(outbox, number, context, request));
    }

    /** The writes that wait, by their numbers. */
    public List<OutboxEntry> entries() {
        return handle.use(outbox -> Result.read(Native.checked(Native.entries(outbox))).kept());
    }

    /** The writes that the service has refused. */
    public List<OutboxEntry> refused() {
        return handle.use(
                outbox -> Result.read(Native.checked(Native.refusedEntries(outbox))).kept());
    }

    /**
     * Tells of every event from now on, one at a time and in their order, by the household's
     * executor.
     *
     * @return what ends it by its {@code close}; the end of the outbox does, too
     */
    public Watch watch(Consumer<OutboxEvent> listener) {
        long[] request = new long[1];
        Events.registerChecked(
                new Listener<>(household.executor(), OutboxEvent::read, listener),
                context -> handle.use(outbox -> Native.watch(outbox, context, request)));
        Watch watch = new Watch(request[0], watches);
        watches.add(watch);
        return watch;
    }

    /** Tries at once what waits for the service: to be called when the network is back. */
    public void networkIsBack() {
        handle.check(Native::networkIsBack);
    }

    /** Goes on with a profile's writes that wait for a bind: after signing in again. */
    public void bindIsNew(String profileID) {
        byte[] profile = WireWriter.utf8("profileID", profileID);
        handle.check(outbox -> Native.bindIsNew(outbox, profile));
    }

    /**
     * Ends the outbox once no reporter uses it: stores what was added before, which may wait for the
     * disk; its writes stay.
     */
    @Override
    public void close() {
        handle.close();
    }

    Handle handle() {
        return handle;
    }

    private interface Start {
        int begin(long outbox, long context, long[] request);
    }

    private <T> CompletableFuture<T> start(Function<Result, T> value, Start start) {
        return Requests.start(
                this,
                household.executor(),
                value,
                (context, request) ->
                        handle.use(outbox -> start.begin(outbox, context, request)));
    }

    /** Somebody who is told of an outbox's events. */
    public static final class Watch implements AutoCloseable {
        private final Handle handle;
        private final Set<Watch> watches;

        private Watch(long request, Set<Watch> watches) {
            this.watches = watches;
            handle = new Handle(this, "watch", request, each -> Native.endRequest(each, true));
        }

        /** Tells of nothing more; an event that is under way may still arrive. */
        @Override
        public void close() {
            handle.close();
            watches.remove(this);
        }
    }
}
