package kestrin.profile;

import java.time.Duration;

/**
 * Who acts, and how.
 *
 * @param profileID       null: the household's parent, as it is configured now
 * @param brandID         null: the configured one, at the time of each attempt
 * @param withoutRepeats  each request is sent once
 * @param deadline        of a call; null: that of the retry policy
 */
public record SessionOptions(
        String profileID, String brandID, boolean withoutRepeats, Duration deadline) {
    /** The household's parent. */
    public static SessionOptions parent() {
        return of(null);
    }

    /** A profile. */
    public static SessionOptions of(String profileID) {
        return new SessionOptions(profileID, null, false, null);
    }

    /** The same with a brand. */
    public SessionOptions withBrandID(String other) {
        return new SessionOptions(profileID, other, withoutRepeats, deadline);
    }

    /** The same whose requests are sent once. */
    public SessionOptions sentOnce() {
        return new SessionOptions(profileID, brandID, true, deadline);
    }

    /** The same whose calls end after this time at the latest. */
    public SessionOptions withDeadline(Duration other) {
        return new SessionOptions(profileID, brandID, withoutRepeats, other);
    }

    byte[] toBytes() {
        return new WireWriter()
                .text("profileID", profileID)
                .text("brandID", brandID)
                .bool(withoutRepeats)
                .optional(
                        deadline == null
                                ? null
                                : Long.valueOf(WireWriter.milliseconds("deadline", deadline)))
                .toBytes();
    }
}
