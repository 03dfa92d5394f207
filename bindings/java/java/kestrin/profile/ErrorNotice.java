package kestrin.profile;

/** What to show a viewer of an error; docs/household.md says which error is which. */
public enum ErrorNotice {
    /** Nothing: it ended because somebody wanted it to. */
    NOTHING,
    /** There is no network. */
    NO_NETWORK,
    /** The service does not work. */
    SERVICE_DOWN,
    /** Sign in again. */
    SIGN_IN_AGAIN,
    /** That is not allowed. */
    NOT_ALLOWED,
    /** What was entered is not right. */
    MEND_INPUT,
    /** The connection is not secure. */
    NOT_SECURE,
    /** Something is broken, and the viewer can do nothing about it. */
    BROKEN,
    /** Nobody knows. */
    UNKNOWN,
    /** The device has no space left. */
    NO_SPACE,
    /** Something that this version does not know. */
    OTHER
}
