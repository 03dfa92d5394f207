package kestrin.profile;

import java.time.Duration;

/**
 * Reports how far a video was watched, in few writes. Any thread. Close it; what nobody can reach
 * any more is closed when it is collected, too, but that may be late for the last position.
 */
public final class PlaybackReporter implements AutoCloseable {
    private static final long UNKNOWN = -1;

    // They must not be collected before it.
    private final Household household;
    private final Outbox outbox;

    private final Handle handle;

    PlaybackReporter(Household household, ReporterOptions options) {
        this.household = household;
        outbox = options.outbox();
        byte[] bytes = options.toBytes();
        handle =
                Events.register(
                        new Listener<>(
                                household.executor(),
                                KestrinException::read,
                                options.failed() == null ? problem -> {} : options.failed()),
                        context -> made(bytes, context));
    }

    private Handle made(byte[] options, long context) {
        return Handle.made(
                this,
                "playback reporter",
                place -> household.handle().use(acting -> create(acting, options, context, place)),
                Native::releaseReporter);
    }

    private int create(long acting, byte[] options, long context, long[] place) {
        if (outbox == null) return Native.createReporter(acting, 0, options, context, place);
        return outbox.handle()
                .use(keeping -> Native.createReporter(acting, keeping, options, context, place));
    }

    /** The player is at a position; null or below zero: unknown, and nothing changes. */
    public void position(Duration position) {
        long at = millisecondsOf(position);
        handle.check(reporter -> Native.position(reporter, at));
    }

    /** Somebody has moved the player; null or below zero: until a position is told, none is known. */
    public void moved(Duration position) {
        long at = millisecondsOf(position);
        handle.check(reporter -> Native.moved(reporter, at));
    }

    /** Writes at once. */
    public void paused() {
        handle.check(Native::paused);
    }

    /** Writes at once. */
    public void inBackground() {
        handle.check(Native::inBackground);
    }

    /** The video was watched to the end; writes at once. */
    public void finished() {
        handle.check(Native::finished);
    }

    /** Writes what is known and was not written, and ends. May wait for the disk. */
    @Override
    public void close() {
        handle.close();
    }

    private static long millisecondsOf(Duration position) {
        return position == null ? UNKNOWN : WireWriter.milliseconds("position", position);
    }
}
