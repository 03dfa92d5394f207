package kestrin.profile;

/** Why the configuration does not let a request go out. */
public final class ConfigurationManagerException extends KestrinException {
    private static final long serialVersionUID = 1;

    ConfigurationManagerException(Description description) {
        super(description);
    }

    /** Which one it is. */
    public Reason reason() {
        return Codes.of(Reason.class, code());
    }

    /** The reasons. */
    public enum Reason {
        /** The record is incomplete. */
        INVALID_PARAMETERS,
        /** The configuration switches the service off. */
        SERVICE_DISABLED,
        /** There is no value for a placeholder of the URL. */
        PLACEHOLDER_UNFILLED,
        /** There is no configuration, or none of the operation. */
        SERVICE_NOT_CONFIGURED,
        /** The strict mode refuses the identifier. */
        IDENTIFIER_REFUSED,
        /** Something that this version does not know. */
        UNKNOWN
    }
}
