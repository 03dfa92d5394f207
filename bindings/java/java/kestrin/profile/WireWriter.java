package kestrin.profile;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.CharBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.Arrays;
import java.util.Collection;
import java.util.function.BiConsumer;

/**
 * Writes what the library reads: numbers in the machine's order, texts as their length (-1: absent)
 * and UTF-8. The other side is jni/Wire.hpp.
 */
final class WireWriter {
    private ByteBuffer bytes = ByteBuffer.allocate(256).order(ByteOrder.nativeOrder());

    /** The UTF-8 of a text; null stays null. */
    static byte[] utf8(String name, String text) {
        if (text == null) return null;
        ByteBuffer encoded = encoded(name, text);
        return Arrays.copyOfRange(encoded.array(), encoded.position(), encoded.limit());
    }

    private static ByteBuffer encoded(String name, String text) {
        try {
            // Reports what is not Unicode, where String.getBytes would put a question mark.
            return StandardCharsets.UTF_8.newEncoder().encode(CharBuffer.wrap(text));
        } catch (CharacterCodingException problem) {
            throw new InvalidCallException(
                    InvalidCallException.Reason.INVALID_UTF8.code(),
                    name + " holds half of a surrogate pair, which is no character");
        }
    }

    byte[] toBytes() {
        return Arrays.copyOf(bytes.array(), bytes.position());
    }

    WireWriter number(int value) {
        room(Integer.BYTES).putInt(value);
        return this;
    }

    WireWriter number(long value) {
        room(Long.BYTES).putLong(value);
        return this;
    }

    WireWriter number(double value) {
        room(Double.BYTES).putDouble(value);
        return this;
    }

    WireWriter bool(boolean value) {
        room(1).put((byte) (value ? 1 : 0));
        return this;
    }

    /** A number that may be null. */
    WireWriter optional(Long value) {
        bool(value != null);
        return value == null ? this : number(value.longValue());
    }

    /** A Boolean that may be null. */
    WireWriter optional(Boolean value) {
        bool(value != null);
        return value == null ? this : bool(value);
    }

    /** A time in seconds that may be null. */
    WireWriter optionalSeconds(Duration value) {
        return optional(value == null ? null : Long.valueOf(value.getSeconds()));
    }

    /** A time in milliseconds, rounded away from none. */
    WireWriter milliseconds(Duration value) {
        return number(milliseconds("the time", value));
    }

    static long milliseconds(String name, Duration value) {
        try {
            long whole = value.toMillis();
            if (value.isNegative()) return Math.min(whole, -1);
            return value.compareTo(Duration.ofMillis(whole)) > 0 ? Math.addExact(whole, 1) : whole;
        } catch (ArithmeticException problem) {
            throw new InvalidCallException(
                    InvalidCallException.Reason.INVALID_ARGUMENT.code(), name + " is out of range");
        }
    }

    /** A text that may be null; the name is for messages. */
    WireWriter text(String name, String value) {
        return value == null ? number(-1) : blob(encoded(name, value));
    }

    /** Bytes that may be null. */
    WireWriter blob(byte[] value) {
        return value == null ? number(-1) : blob(ByteBuffer.wrap(value));
    }

    private WireWriter blob(ByteBuffer value) {
        number(value.remaining());
        room(value.remaining()).put(value);
        return this;
    }

    /** How many there are, and each of them; null is absent. */
    <T> WireWriter all(Collection<? extends T> values, BiConsumer<WireWriter, T> write) {
        if (values == null) return number(-1);
        number(values.size());
        for (T value : values) write.accept(this, value);
        return this;
    }

    private ByteBuffer room(int count) {
        if (bytes.remaining() < count) {
            byte[] larger = Arrays.copyOf(
                    bytes.array(), Math.max(2 * bytes.capacity(), Math.addExact(bytes.position(), count)));
            bytes = ByteBuffer.wrap(larger).order(ByteOrder.nativeOrder()).position(bytes.position());
        }
        return bytes;
    }
}
