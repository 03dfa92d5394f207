package kestrin.profile;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.time.Instant;
import java.time.temporal.ChronoUnit;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.function.Function;

/** Reads what the library has written; see {@link WireWriter}. */
final class WireReader {
    private final byte[] array;
    private final ByteBuffer bytes;

    WireReader(byte[] array, int from, int length) {
        this.array = array;
        bytes = ByteBuffer.wrap(array, from, length).order(ByteOrder.nativeOrder());
    }

    boolean hasMore() {
        return bytes.hasRemaining();
    }

    /** What comes next, of a length, to be read by itself. */
    WireReader part(int length) {
        int from = bytes.position();
        bytes.position(from + length);
        return new WireReader(array, from, length);
    }

    byte octet() {
        return bytes.get();
    }

    boolean bool() {
        return bytes.get() != 0;
    }

    int integer() {
        return bytes.getInt();
    }

    long number() {
        return bytes.getLong();
    }

    double real() {
        return bytes.getDouble();
    }

    Long optionalNumber() {
        return bool() ? number() : null;
    }

    Boolean optionalBool() {
        return bool() ? bool() : null;
    }

    Duration optionalSeconds() {
        return bool() ? Duration.ofSeconds(number()) : null;
    }

    Duration milliseconds() {
        return Duration.ofMillis(number());
    }

    /** A time in microseconds since 1970. */
    Instant optionalTime() {
        return bool() ? Instant.EPOCH.plus(number(), ChronoUnit.MICROS) : null;
    }

    String text() {
        int length = integer();
        if (length < 0) return null;
        int from = bytes.position();
        bytes.position(from + length);
        return new String(array, from, length, StandardCharsets.UTF_8);
    }

    byte[] blob() {
        int length = integer();
        if (length < 0) return null;
        byte[] value = new byte[length];
        bytes.get(value);
        return value;
    }

    /** A list that nobody can change; null if it is absent. */
    <T> List<T> all(Function<WireReader, T> read) {
        int count = integer();
        if (count < 0) return null;
        List<T> values = new ArrayList<>(count);
        for (int index = 0; index < count; ++index) values.add(read.apply(this));
        return Collections.unmodifiableList(values);
    }

    /** What may not be there: null then. */
    <T> T optional(Function<WireReader, T> read) {
        return bool() ? read.apply(this) : null;
    }
}
