package kestrin.profile;

import java.time.Duration;
import java.util.List;

/**
 * What a transport is to send.
 *
 * @param method          of HTTP
 * @param url             of https, or of http where the configuration allows it
 * @param headers         all of them but User-Agent and those of the framing
 * @param body            null: the request has none; not copied
 * @param sendsUserAgent  false: without a User-Agent header
 * @param connectTimeout  until the connection is there
 * @param totalTimeout    for all of it
 * @param maxRedirects    0: none is followed, a 3xx is the reply
 * @param maxBodyLength   of the reply, decoded; a longer one may be cut off and failed
 * @param operation       for logs
 * @param pathTemplate    for logs: what may be shown of the URL
 */
public record TransferRequest(
        String method,
        String url,
        List<Header> headers,
        byte[] body,
        boolean sendsUserAgent,
        Duration connectTimeout,
        Duration totalTimeout,
        int maxRedirects,
        long maxBodyLength,
        String operation,
        String pathTemplate) {
    /** Without the URL, the headers and the body, which hold secrets. */
    @Override
    public String toString() {
        return "TransferRequest[" + operation + ": " + method + " " + pathTemplate + "]";
    }

    static TransferRequest read(WireReader reader) {
        return new TransferRequest(
                reader.text(),
                reader.text(),
                reader.all(Header::read),
                reader.blob(),
                reader.bool(),
                reader.milliseconds(),
                reader.milliseconds(),
                reader.integer(),
                reader.number(),
                reader.text(),
                reader.text());
    }
}
