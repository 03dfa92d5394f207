package kestrin.profile;

/**
 * A header of a request or a reply.
 *
 * @param name   without a colon
 * @param value  as text; bytes that are not UTF-8 are replaced
 */
public record Header(String name, String value) {
    static Header read(WireReader reader) {
        return new Header(reader.text(), reader.text());
    }

    static void write(WireWriter writer, Header header) {
        writer.text("header.name", header.name).text("header.value", header.value);
    }
}
