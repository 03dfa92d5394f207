package kestrin.profile;

/** An operation's own error. */
public final class ProfileException extends KestrinException {
    private static final long serialVersionUID = 1;

    ProfileException(Description description) {
        super(description);
    }

    /** Which one it is. */
    public Reason reason() {
        return Codes.of(Reason.class, code());
    }

    /** The reasons. */
    public enum Reason {
        /** A request was made of a record without an operation. */
        PARAMETER_OPERATION_MISMATCH,
        /** Reserved: no operation raises it. */
        ANONYMOUS_BIND_UNINITIALIZED,
        /** A bind was requested without a profile identifier. */
        PROFILE_ID_VALIDATION_FAILURE,
        /** A profile was to be changed without saying which. */
        USER_INVALID_FOR_OPERATION,
        /** The household's parent profile can be neither edited nor deleted. */
        PARENT_INVALID_FOR_OPERATION,
        /** The reply holds no valid bind. */
        ANONYMOUS_BIND_SERIALIZATION_ERROR,
        /** The reply is no list. */
        USER_PROFILE_SERIALIZATION_ERROR,
        /** The reply is no profile, or no list of profiles. */
        USER_SERIALIZATION_ERROR,
        /** Something that this version does not know. */
        UNKNOWN
    }
}
