package kestrin.profile;

/** Why an outbox has not kept a write. */
public final class OutboxException extends KestrinException {
    private static final long serialVersionUID = 1;

    OutboxException(Description description) {
        super(description);
    }

    /** Which one it is. */
    public Reason reason() {
        return Codes.of(Reason.class, code());
    }

    /** The reasons. */
    public enum Reason {
        /** The write is none that can be kept. */
        INVALID_WRITE,
        /** Too many writes wait. */
        FULL,
        /** The store could not be opened. */
        STORE_UNAVAILABLE,
        /** The write could not be stored. */
        NOT_STORED,
        /** The outbox has ended. */
        CLOSED,
        /** Something that this version does not know. */
        UNKNOWN
    }
}
