package kestrin.profile;

/**
 * Why a request failed. It completes the request's future; there it is the cause of the {@link
 * java.util.concurrent.ExecutionException} or {@link java.util.concurrent.CompletionException}. A
 * request that was cancelled ends with a {@link java.util.concurrent.CancellationException} instead.
 *
 * <p>{@link #getMessage} is for people who investigate; no error holds a secret.
 */
public sealed class KestrinException extends RuntimeException
        permits SlingException,
                ProfileException,
                ConfigurationManagerException,
                OutboxException,
                InvalidCallException {
    private static final long serialVersionUID = 1;

    private final String domain;
    private final int code;
    private final int status;
    private final ErrorNotice notice;
    private final String advice;
    private final String requestID;
    private final String problemType;
    private final String problemTitle;
    private final String problemDetail;

    KestrinException(Description description) {
        super(description.message);
        domain = description.domain;
        code = description.code;
        status = description.status;
        notice = description.notice;
        advice = description.advice;
        requestID = description.requestID;
        problemType = description.problemType;
        problemTitle = description.problemTitle;
        problemDetail = description.problemDetail;
    }

    /** Who says it, e.g. "HalvardSling.SlingError". */
    public final String domain() {
        return domain;
    }

    /** The error's number in its domain. */
    public final int code() {
        return code;
    }

    /** Of the reply; 0: there was none with an error status. */
    public final int status() {
        return status;
    }

    /** What to show a viewer. */
    public final ErrorNotice notice() {
        return notice;
    }

    /** What the caller should do. */
    public final String advice() {
        return advice;
    }

    /** What the service's log knows the request by; may be empty. */
    public final String requestID() {
        return requestID;
    }

    /** Of the reply's problem document (RFC 9457); empty if it has none. */
    public final String problemType() {
        return problemType;
    }

    /** Of the reply's problem document; empty if it has none. */
    public final String problemTitle() {
        return problemTitle;
    }

    /** Of the reply's problem document; empty if it has none. */
    public final String problemDetail() {
        return problemDetail;
    }

    static KestrinException read(WireReader reader) {
        Description description =
                new Description(
                        reader.text(),
                        reader.integer(),
                        reader.integer(),
                        Codes.of(ErrorNotice.class, reader.integer()),
                        reader.text(),
                        reader.text(),
                        reader.text(),
                        reader.text(),
                        reader.text(),
                        reader.text());
        return switch (description.domain) {
            case "HalvardSling.SlingError" -> new SlingException(description);
            case "KestrinProfile.ProfileError" -> new ProfileException(description);
            case "KestrinConfigManager.ConfigurationManagerError" ->
                    new ConfigurationManagerException(description);
            case "KestrinHousehold.OutboxError" -> new OutboxException(description);
            default -> new KestrinException(description);
        };
    }

    /** All that is known of an error. */
    record Description(
            String domain,
            int code,
            int status,
            ErrorNotice notice,
            String message,
            String advice,
            String requestID,
            String problemType,
            String problemTitle,
            String problemDetail) {}
}
