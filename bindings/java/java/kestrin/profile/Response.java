package kestrin.profile;

import java.nio.charset.StandardCharsets;
import java.util.List;

/**
 * A reply as it came.
 *
 * @param status   of HTTP (RFC 9110, section 15)
 * @param headers  in the order in which they came
 * @param body     of any kind; not copied
 */
public record Response(int status, List<Header> headers, byte[] body) {
    /** The body as text, read as UTF-8. */
    public String text() {
        return new String(body, StandardCharsets.UTF_8);
    }

    static Response read(WireReader reader) {
        return new Response(reader.integer(), reader.all(Header::read), reader.blob());
    }
}
