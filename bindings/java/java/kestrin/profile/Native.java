package kestrin.profile;

import java.nio.charset.StandardCharsets;

/**
 * The library's functions, as libkestrin_profile_jni has them. Texts and records are bytes of a
 * {@link WireWriter}; what returns an {@code int} returns a status, for {@link #check}. A handle goes
 * into the first place of an array.
 */
final class Native {
    private static final String LIBRARY = "kestrin_profile_jni";
    private static final int OK = 0;
    private static final int OUT_OF_MEMORY = 3;

    static {
        load();
    }

    private Native() {}

    private static void load() {
        String file = System.getProperty("kestrin.profile.library");
        if (file != null) System.load(file);
        else System.loadLibrary(LIBRARY);
    }

    /** Throws what a status other than OK stands for. Has to follow the call on its thread. */
    static void check(int status) {
        if (status == OK) return;
        if (status == OUT_OF_MEMORY) throw new OutOfMemoryError("no memory for the library");
        throw problem(status);
    }

    /** Bytes that a function gave, which are null if it failed. */
    static WireReader checked(byte[] bytes) {
        if (bytes == null) throw problem(InvalidCallException.Reason.FAILED.code());
        return new WireReader(bytes, 0, bytes.length);
    }

    static String text(byte[] utf8) {
        return utf8 == null ? "" : new String(utf8, StandardCharsets.UTF_8);
    }

    private static InvalidCallException problem(int status) {
        return new InvalidCallException(status, text(lastProblem()));
    }

    static native byte[] version();

    static native byte[] lastProblem();

    static native byte[] nextEvents();

    static native byte[] operationName(int operation);

    static native int configure(byte[] json);

    static native int removeConfiguration();

    static native int storeBind(byte[] bind);

    static native int selectProfile(byte[] profileID);

    static native int dropBinds();

    static native byte[] heldBinds();

    static native int setBindStore(long context, byte[] loaded);

    static native int setTransport(long context);

    static native int finishTransfer(long transfer, byte[] reply);

    static native int failTransfer(long transfer, int error, byte[] message);

    static native int startPlain(byte[] bind, byte[] call, long context, long[] request);

    static native int startSession(long session, byte[] call, long context, long[] request);

    static native int keep(long session, long outbox, byte[] call, long context, long[] request);

    static native void endRequest(long request, boolean cancels);

    static native byte[] defaultRetryPolicy();

    static native int createHousehold(byte[] policy, long logContext, long[] household);

    static native void releaseHousehold(long household);

    static native int warmUp(long household, long context, long[] request);

    static native int createSession(long household, byte[] options, long[] session);

    static native void releaseSession(long session);

    static native byte[] defaultOutboxOptions();

    static native int createOutbox(long household, byte[] options, long[] outbox);

    static native void releaseOutbox(long outbox);

    static native int addWrite(long outbox, byte[] write, long context, long[] request);

    static native int opening(long outbox, long context, long[] request);

    static native int settled(long outbox, long context, long[] request);

    static native int dropWrite(long outbox, long number, long context, long[] request);

    static native byte[] entries(long outbox);

    static native byte[] refusedEntries(long outbox);

    static native int watch(long outbox, long context, long[] request);

    static native int networkIsBack(long outbox);

    static native int bindIsNew(long outbox, byte[] profileID);

    static native int createReporter(
            long household, long outbox, byte[] options, long context, long[] reporter);

    static native void releaseReporter(long reporter);

    static native int position(long reporter, long milliseconds);

    static native int moved(long reporter, long milliseconds);

    static native int paused(long reporter);

    static native int inBackground(long reporter);

    static native int finished(long reporter);
}
