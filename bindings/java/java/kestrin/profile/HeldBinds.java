package kestrin.profile;

import java.util.List;

/**
 * All binds that are held.
 *
 * @param binds              at most one for each profile
 * @param selectedProfileID  the profile whose bind plain operations use; null: none yet
 */
public record HeldBinds(List<AnonymousBind> binds, String selectedProfileID) {
    /** Copies the list. */
    public HeldBinds {
        binds = List.copyOf(binds);
    }

    byte[] toBytes() {
        return new WireWriter()
                .<AnonymousBind>all(binds, AnonymousBind::write)
                .text("selectedProfileID", selectedProfileID)
                .toBytes();
    }
}
