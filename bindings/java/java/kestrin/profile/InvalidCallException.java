package kestrin.profile;

/**
 * A call that the library does not take: what was handed in is not what it asks for. For whoever
 * develops, not for viewers.
 */
public final class InvalidCallException extends KestrinException {
    private static final long serialVersionUID = 1;
    private static final String ADVICE = "Mend the call; the message says what is wrong with it.";

    InvalidCallException(int status, String message) {
        super(new Description(
                "KestrinC", status, 0, ErrorNotice.BROKEN, message, ADVICE, "", "", "", ""));
    }

    /** Why. */
    public Reason reason() {
        return Codes.of(Reason.class, code() - 1);
    }

    /** The reasons. */
    public enum Reason {
        /** What was handed in is not what the function takes. */
        INVALID_ARGUMENT,
        /** A text that is not Unicode: half of a surrogate pair. */
        INVALID_UTF8,
        /** There was not enough memory. */
        OUT_OF_MEMORY,
        /** The library was built without it. */
        NOT_AVAILABLE,
        /** The system refused, for example a thread. */
        FAILED,
        /** Something that this version does not know. */
        UNKNOWN;

        int code() {
            return ordinal() + 1;
        }
    }
}
