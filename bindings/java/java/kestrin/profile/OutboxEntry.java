package kestrin.profile;

import java.time.Instant;

/**
 * A write in an outbox.
 *
 * @param number      what was accepted later has a higher one; 0: not accepted
 * @param write       what is to be done; may be null in an event about the outbox itself
 * @param acceptedAt  by the device's clock
 * @param refusal     why the service does not take it; null while it waits
 */
public record OutboxEntry(long number, OutboxWrite write, Instant acceptedAt, Refusal refusal) {
    /**
     * Why the service does not take a write.
     *
     * @param at      by the device's clock
     * @param status  of the reply; 0: the request could not be made
     * @param title   of the reply's problem document (RFC 9457), or what else is known
     * @param detail  the same
     */
    public record Refusal(Instant at, int status, String title, String detail) {
        static Refusal read(WireReader reader) {
            return new Refusal(
                    Instant.ofEpochMilli(reader.number()),
                    reader.integer(),
                    reader.text(),
                    reader.text());
        }
    }

    static OutboxEntry read(WireReader reader) {
        return new OutboxEntry(
                reader.number(),
                reader.optional(OutboxWrite::read),
                Instant.ofEpochMilli(reader.number()),
                reader.optional(Refusal::read));
    }
}
