package kestrin.profile;

/** What went wrong on the way, an error status included. */
public final class SlingException extends KestrinException {
    private static final long serialVersionUID = 1;

    SlingException(Description description) {
        super(description);
    }

    /** What it is. */
    public SlingErrorKind kind() {
        return Codes.of(SlingErrorKind.class, code());
    }
}
