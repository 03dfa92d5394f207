package kestrin.profile;

import java.time.Duration;

/**
 * What happened to a write, or to the outbox.
 *
 * @param kind   what it is
 * @param entry  the write; of {@link Kind#STORE_FAILED} it says nothing
 * @param text   for people; no secrets
 * @param by     of {@link Kind#SUPERSEDED}: the number of the later write; else null
 * @param delay  of {@link Kind#DELAYED}: how long it waits
 */
public record OutboxEvent(Kind kind, OutboxEntry entry, String text, Long by, Duration delay) {
    /** What can happen; docs/outbox.md says more of each. */
    public enum Kind {
        /** The service has taken the write. */
        SENT,
        /** A later write makes it needless. */
        SUPERSEDED,
        /** The service has something newer. */
        DROPPED_AS_STALE,
        /** The service does not take it; it is kept among the refused ones. */
        REFUSED,
        /** A refused write had to make room. */
        FORGOTTEN,
        /** It became too old. */
        EXPIRED,
        /** {@link Outbox#drop} was called. */
        DROPPED,
        /** The outbox was full and has not accepted it. */
        OVERFLOW,
        /** Its profile has no bind, and none can be had. */
        WAITS_FOR_BIND,
        /** The service could not be reached. */
        DELAYED,
        /** The store failed. */
        STORE_FAILED,
        /** Something that this version does not know. */
        UNKNOWN
    }

    static OutboxEvent read(WireReader reader) {
        return new OutboxEvent(
                Codes.of(Kind.class, reader.integer()),
                reader.optional(OutboxEntry::read),
                reader.text(),
                reader.optionalNumber(),
                reader.milliseconds());
    }
}
