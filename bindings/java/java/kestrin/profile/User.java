package kestrin.profile;

/**
 * A profile of the household.
 *
 * @param profileID    null until the service has created the profile
 * @param username     the display name
 * @param avatar       may be null
 * @param group        may be null
 * @param defaultUser  whether this is the household's default profile
 */
public record User(
        String profileID, String username, String avatar, String group, boolean defaultUser) {
    /** A profile that is still to be created. */
    public static User named(String username, String avatar, String group) {
        return new User(null, username, avatar, group, false);
    }

    static User read(WireReader reader) {
        return new User(
                reader.text(), reader.text(), reader.text(), reader.text(), reader.bool());
    }

    static void write(WireWriter writer, User user) {
        writer.text("user.profileID", user.profileID)
                .text("user.username", user.username)
                .text("user.avatar", user.avatar)
                .text("user.group", user.group)
                .bool(user.defaultUser);
    }
}
