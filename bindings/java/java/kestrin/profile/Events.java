package kestrin.profile;

import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.AtomicLong;
import java.util.function.LongFunction;

/**
 * What the library tells, handed to whom it is for. The library's own threads never enter Java: one
 * daemon thread of ours takes what they leave.
 */
final class Events {
    // The kinds of jni/Events.hpp.
    static final int RELEASED = 0;
    static final int COMPLETED = 1;
    static final int HOUSEHOLD_EVENT = 2;
    static final int OUTBOX_EVENT = 3;
    static final int REPORTER_FAILED = 4;
    static final int BINDS_TO_SAVE = 5;
    static final int SEND = 6;
    static final int CANCEL = 7;

    /** Who is told. It must not block, for all others wait. */
    interface Target {
        void event(int kind, WireReader event);

        /** Nothing more comes. */
        default void released(boolean lackedMemory) {}
    }

    private static final Map<Long, Target> targets = new ConcurrentHashMap<>();
    private static final AtomicLong last = new AtomicLong();

    static {
        Thread thread = new Thread(Events::run, "kestrin-profile");
        thread.setDaemon(true);
        thread.start();
    }

    private Events() {}

    /**
     * Hands a target to the library, which knows it by a number until it releases it. If that throws
     * the library does not have it.
     */
    static <T> T register(Target target, LongFunction<T> use) {
        long id = last.incrementAndGet();
        targets.put(id, target);
        try {
            return use.apply(id);
        } catch (Throwable problem) {
            targets.remove(id);
            throw problem;
        }
    }

    /** The same for a function that returns a status. */
    static void registerChecked(Target target, LongFunction<Integer> use) {
        register(
                target,
                id -> {
                    Native.check(use.apply(id));
                    return null;
                });
    }

    /** How many are waited for. */
    static int count() {
        return targets.size();
    }

    private static void run() {
        for (;;) {
            try {
                byte[] bytes = Native.nextEvents();
                if (bytes != null) deliverAll(new WireReader(bytes, 0, bytes.length));
            } catch (Throwable problem) {
                report(problem);
            }
        }
    }

    private static void deliverAll(WireReader events) {
        while (events.hasMore()) {
            long id = events.number();
            int kind = events.octet();
            WireReader event = events.part(events.integer());
            try {
                deliver(id, kind, event);
            } catch (Throwable problem) {
                report(problem);
            }
        }
    }

    private static void deliver(long id, int kind, WireReader event) {
        Target target = kind == RELEASED ? targets.remove(id) : targets.get(id);
        if (target == null) return;
        if (kind == RELEASED) target.released(event.bool());
        else target.event(kind, event);
    }

    /** What the application's code has thrown where nobody could catch it. */
    static void report(Throwable problem) {
        Thread thread = Thread.currentThread();
        try {
            thread.getUncaughtExceptionHandler().uncaughtException(thread, problem);
        } catch (Throwable again) {
            // There is nobody left to tell.
        }
    }
}
