package kestrin.profile;

import java.time.Duration;
import java.util.List;

/**
 * A change of a profile's lists, as an outbox keeps it.
 *
 * @param profileID   whose lists
 * @param brandID     null: none
 * @param operation   one that changes a list
 * @param itemID      the video, the show or the search text; null for whole lists
 * @param shows       of {@link Operation#ADD_FAVORITE_SHOWS}; else null or empty
 * @param progress    how far a video was watched, in whole seconds; may be null
 * @param isComplete  whether it was watched to the end; null: the service is not told
 */
public record OutboxWrite(
        String profileID,
        String brandID,
        Operation operation,
        String itemID,
        List<UserProfileElement> shows,
        Duration progress,
        Boolean isComplete) {
    static OutboxWrite read(WireReader reader) {
        return new OutboxWrite(
                reader.text(),
                reader.text(),
                Operation.of(reader.integer()),
                reader.text(),
                reader.all(UserProfileElement::read),
                reader.optionalSeconds(),
                reader.optionalBool());
    }

    byte[] toBytes() {
        return new WireWriter()
                .text("write.profileID", profileID)
                .text("write.brandID", brandID)
                .number(operation.code())
                .text("write.itemID", itemID)
                .<UserProfileElement>all(shows, UserProfileElement::write)
                .optionalSeconds(progress)
                .optional(isComplete)
                .toBytes();
    }
}
