package kestrin.profile;

import java.util.List;

/**
 * How an outbox was found, or stands once it does nothing.
 *
 * @param waiting   how many writes wait
 * @param refused   how many writes the service has refused
 * @param warnings  what of the store was damaged, for people
 */
public record OutboxState(long waiting, long refused, List<String> warnings) {
    static OutboxState read(WireReader reader) {
        return new OutboxState(reader.number(), reader.number(), reader.all(WireReader::text));
    }
}
