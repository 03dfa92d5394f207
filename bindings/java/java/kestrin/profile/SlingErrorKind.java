package kestrin.profile;

/** What can go wrong on the way. */
public enum SlingErrorKind {
    /** The reply has an error status. */
    HTTP_STATUS,
    /** There was no connection. */
    CANNOT_CONNECT,
    /** The host's name was not resolved. */
    NAME_NOT_RESOLVED,
    /** The peer was not verified, or TLS failed otherwise. */
    TLS,
    /** The connection was not made in time. */
    CONNECT_TIMEOUT,
    /** The reply did not come in time. */
    TOTAL_TIMEOUT,
    /** The connection was lost; the service may have worked on the request. */
    CONNECTION_LOST,
    /** The reply is too large. */
    TOO_LARGE,
    /** The URL is none. */
    MALFORMED_URL,
    /** A header that cannot be sent. */
    FORBIDDEN_HEADER,
    /** The reply is not HTTP. */
    MALFORMED_REPLY,
    /** A redirect that is not followed. */
    REDIRECT,
    /** It ended because the transport did. */
    CANCELLED,
    /** There was not enough memory. */
    OUT_OF_MEMORY,
    /** The reply's body is not JSON. */
    MALFORMED_BODY,
    /** Something that this version does not know. */
    UNKNOWN;

    int code() {
        return ordinal();
    }
}
