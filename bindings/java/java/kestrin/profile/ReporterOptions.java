package kestrin.profile;

import java.time.Duration;
import java.util.Objects;
import java.util.function.Consumer;

/**
 * What is being watched, by whom.
 *
 * @param profileID  who watches
 * @param brandID    null: none
 * @param videoID    what is watched
 * @param outbox     where the writes are kept; null: they are sent as the household's profile
 * @param interval   between two writes at the least; null: the default, 10 s
 * @param failed     told why a write was not taken, by the household's executor; null: nobody is
 */
public record ReporterOptions(
        String profileID,
        String brandID,
        String videoID,
        Outbox outbox,
        Duration interval,
        Consumer<KestrinException> failed) {
    /** Neither profile nor video may be null. */
    public ReporterOptions {
        Objects.requireNonNull(profileID, "profileID");
        Objects.requireNonNull(videoID, "videoID");
    }

    /** A profile that watches a video; its writes are sent. */
    public static ReporterOptions of(String profileID, String videoID) {
        return new ReporterOptions(profileID, null, videoID, null, null, null);
    }

    /** The same with a brand. */
    public ReporterOptions withBrandID(String other) {
        return new ReporterOptions(profileID, other, videoID, outbox, interval, failed);
    }

    /** The same whose writes are kept. */
    public ReporterOptions withOutbox(Outbox other) {
        return new ReporterOptions(profileID, brandID, videoID, other, interval, failed);
    }

    /** The same with another interval. */
    public ReporterOptions withInterval(Duration other) {
        return new ReporterOptions(profileID, brandID, videoID, outbox, other, failed);
    }

    /** The same with somebody who is told of failures. */
    public ReporterOptions withFailed(Consumer<KestrinException> other) {
        return new ReporterOptions(profileID, brandID, videoID, outbox, interval, other);
    }

    byte[] toBytes() {
        return new WireWriter()
                .text("profileID", profileID)
                .text("brandID", brandID)
                .text("videoID", videoID)
                .number(interval == null ? 0 : WireWriter.milliseconds("interval", interval))
                .toBytes();
    }
}
