package kestrin.profile;

import java.nio.file.Path;
import java.time.Duration;

/**
 * The bounds and times of an outbox; docs/outbox.md says more of each.
 *
 * @param file            where writes are kept; null: in memory, as long as the outbox lives
 * @param maxEntries      how many writes may wait, 1 or more
 * @param maxAge          an older one is dropped when its turn comes
 * @param maxRefused      how many refused writes are kept
 * @param compareAfter    an older write is compared with what the service has
 * @param firstDelay      the first wait after the service could not be reached; it doubles
 * @param longestDelay    up to this
 * @param removalDelay    that writes were sent is stored for several at once, after this time
 * @param longestRequest  how long a request may be on its way
 */
public record OutboxOptions(
        Path file,
        long maxEntries,
        Duration maxAge,
        long maxRefused,
        Duration compareAfter,
        Duration firstDelay,
        Duration longestDelay,
        Duration removalDelay,
        Duration longestRequest) {
    /** The library's own, in memory. */
    public static OutboxOptions defaults() {
        WireReader reader = Native.checked(Native.defaultOutboxOptions());
        reader.text();
        return new OutboxOptions(
                null,
                reader.number(),
                reader.milliseconds(),
                reader.number(),
                reader.milliseconds(),
                reader.milliseconds(),
                reader.milliseconds(),
                reader.milliseconds(),
                reader.milliseconds());
    }

    /** The same in a file. */
    public OutboxOptions withFile(Path other) {
        return new OutboxOptions(
                other,
                maxEntries,
                maxAge,
                maxRefused,
                compareAfter,
                firstDelay,
                longestDelay,
                removalDelay,
                longestRequest);
    }

    /** The same with another bound. */
    public OutboxOptions withMaxEntries(long other) {
        return new OutboxOptions(
                file,
                other,
                maxAge,
                maxRefused,
                compareAfter,
                firstDelay,
                longestDelay,
                removalDelay,
                longestRequest);
    }

    byte[] toBytes() {
        return new WireWriter()
                .text("file", file == null ? null : file.toString())
                .number(maxEntries)
                .milliseconds(maxAge)
                .number(maxRefused)
                .milliseconds(compareAfter)
                .milliseconds(firstDelay)
                .milliseconds(longestDelay)
                .milliseconds(removalDelay)
                .milliseconds(longestRequest)
                .toBytes();
    }
}
