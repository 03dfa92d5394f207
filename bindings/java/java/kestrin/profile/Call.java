package kestrin.profile;

import java.time.Duration;
import java.util.List;

/** What is to be done. */
final class Call {
    private final Operation operation;
    private String profileID;
    private String brandID;
    private String videoID;
    private String showID;
    private String userName;
    private String search;
    private Duration progress;
    private Boolean isComplete;
    private User user;
    private List<UserProfileElement> shows;

    private Call(Operation operation) {
        this.operation = operation;
    }

    static Call of(Operation operation) {
        return new Call(operation);
    }

    Operation operation() {
        return operation;
    }

    Call profileID(String value) {
        profileID = value;
        return this;
    }

    Call brandID(String value) {
        brandID = value;
        return this;
    }

    Call videoID(String value) {
        videoID = value;
        return this;
    }

    Call showID(String value) {
        showID = value;
        return this;
    }

    Call userName(String value) {
        userName = value;
        return this;
    }

    Call search(String value) {
        search = value;
        return this;
    }

    Call progress(Duration value) {
        progress = value;
        return this;
    }

    Call isComplete(Boolean value) {
        isComplete = value;
        return this;
    }

    Call user(User value) {
        user = value;
        return this;
    }

    Call shows(List<UserProfileElement> value) {
        shows = value;
        return this;
    }

    byte[] toBytes() {
        WireWriter writer =
                new WireWriter()
                        .number(operation.code())
                        .text("profileID", profileID)
                        .text("brandID", brandID)
                        .text("videoID", videoID)
                        .text("showID", showID)
                        .text("userName", userName)
                        .text("search", search)
                        .optionalSeconds(progress)
                        .optional(isComplete)
                        .bool(user != null);
        if (user != null) User.write(writer, user);
        return writer.<UserProfileElement>all(shows, UserProfileElement::write).toBytes();
    }
}
