package kestrin.profile;

import java.util.Objects;

/**
 * The right to act for a profile.
 *
 * @param profileID  the profile
 * @param token      a secret; it is in no text of this record
 */
public record AnonymousBind(String profileID, String token) {
    /** Neither may be null. */
    public AnonymousBind {
        Objects.requireNonNull(profileID, "profileID");
        Objects.requireNonNull(token, "token");
    }

    @Override
    public String toString() {
        return "AnonymousBind[profileID=" + profileID + ", token=(secret)]";
    }

    static AnonymousBind read(WireReader reader) {
        return new AnonymousBind(reader.text(), reader.text());
    }

    static void write(WireWriter writer, AnonymousBind bind) {
        writer.text("bind.profileID", bind.profileID).text("bind.token", bind.token);
    }
}
