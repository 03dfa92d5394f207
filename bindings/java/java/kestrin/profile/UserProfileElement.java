package kestrin.profile;

import java.time.Duration;
import java.time.Instant;
import java.time.temporal.ChronoUnit;

/**
 * An entry of a list: a video of the history, a favourite show, a video to watch.
 *
 * @param id                the identifier of the video or show
 * @param type              "SHOW", "VIDEO", "GAME", "COLLECTION" or what else the service has sent;
 *                          may be null
 * @param progress          how far it was watched, in whole seconds; null: the service does not say
 * @param isCompleted       whether it was watched to the end; null: the service does not say
 * @param autoAddTimestamp  when it was added, to the microsecond; null: the service does not say
 */
public record UserProfileElement(
        String id, String type, Duration progress, Boolean isCompleted, Instant autoAddTimestamp) {
    /** A show, for {@link ListWrites#addFavoriteShows}. */
    public static UserProfileElement show(String id) {
        return new UserProfileElement(id, "SHOW", null, null, null);
    }

    static UserProfileElement read(WireReader reader) {
        return new UserProfileElement(
                reader.text(),
                reader.text(),
                reader.optionalSeconds(),
                reader.optionalBool(),
                reader.optionalTime());
    }

    static void write(WireWriter writer, UserProfileElement element) {
        Instant added = element.autoAddTimestamp;
        writer.text("element.id", element.id)
                .text("element.type", element.type)
                .optionalSeconds(element.progress)
                .optional(element.isCompleted)
                .optional(added == null ? null : ChronoUnit.MICROS.between(Instant.EPOCH, added));
    }
}
