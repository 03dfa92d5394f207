package kestrin.profile;

import java.time.Duration;

/**
 * What a log may know of repeats and binds. No token, no identifier.
 *
 * @param kind         what it is
 * @param operation    what was done
 * @param attempt      the number of the attempt, from 1 on
 * @param maxAttempts  how many there are at the most
 * @param delay        until the next one
 * @param reason       e.g. "503"
 * @param text         all of it in one line
 */
public record HouseholdEvent(
        Kind kind,
        Operation operation,
        int attempt,
        int maxAttempts,
        Duration delay,
        String reason,
        String text) {
    /** What can happen. */
    public enum Kind {
        /** A request will be repeated. */
        REPEAT,
        /** It will not be repeated any more. */
        GIVEN_UP,
        /** A bind is obtained. */
        BIND_REQUESTED,
        /** A bind is obtained though one was held. */
        BIND_RENEWED,
        /** A request is sent once more, with a new bind. */
        SENT_ONCE_MORE,
        /** Something that this version does not know. */
        UNKNOWN
    }

    static HouseholdEvent read(WireReader reader) {
        return new HouseholdEvent(
                Codes.of(Kind.class, reader.integer()),
                Operation.of(reader.integer()),
                reader.integer(),
                reader.integer(),
                reader.milliseconds(),
                reader.text(),
                reader.text());
    }
}
