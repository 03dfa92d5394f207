package kestrin.profile;

import java.lang.ref.Cleaner;
import java.lang.ref.Reference;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.LongConsumer;

/**
 * A handle of the library's, released once: by {@link #close}, or when its owner is collected, but
 * never while a call uses it.
 */
final class Handle {
    private static final Cleaner CLEANER = Cleaner.create();

    private final Object owner;
    private final String name;
    private final Life life;
    private final Cleaner.Cleanable cleanable;

    /**
     * @param owner    the object whose end is the handle's
     * @param name     of the kind, for messages
     * @param release  the library's function; must not refer to the owner
     */
    Handle(Object owner, String name, long pointer, LongConsumer release) {
        this.owner = owner;
        this.name = name;
        life = new Life(pointer, release);
        cleanable = CLEANER.register(owner, life);
    }

    /** Makes a handle, or throws why there is none. */
    static Handle made(Object owner, String name, Maker maker, LongConsumer release) {
        long[] pointer = new long[1];
        Native.check(maker.make(pointer));
        return new Handle(owner, name, pointer[0], release);
    }

    interface Maker {
        int make(long[] handle);
    }

    interface Use<T> {
        T with(long pointer);
    }

    /** Uses the handle; throws {@link IllegalStateException} once it was closed. */
    <T> T use(Use<T> use) {
        if (!life.begin()) throw new IllegalStateException("the " + name + " was closed");
        try {
            return use.with(life.pointer);
        } finally {
            life.end();
            // Collected before the use began, it would be taken for closed.
            Reference.reachabilityFence(owner);
        }
    }

    /** The same for a function that returns a status. */
    void check(Use<Integer> use) {
        use(pointer -> {
            Native.check(use.with(pointer));
            return null;
        });
    }

    void close() {
        cleanable.clean();
    }

    /** How many use it; the handle itself counts until it is closed. */
    private static final class Life implements Runnable {
        final long pointer;
        private final LongConsumer release;
        private final AtomicInteger uses = new AtomicInteger(1);
        private final AtomicBoolean closed = new AtomicBoolean();

        Life(long pointer, LongConsumer release) {
            this.pointer = pointer;
            this.release = release;
        }

        boolean begin() {
            return !closed.get() && uses.getAndUpdate(count -> count == 0 ? 0 : count + 1) > 0;
        }

        void end() {
            if (uses.decrementAndGet() == 0) release.accept(pointer);
        }

        @Override
        public void run() {
            if (!closed.getAndSet(true)) end();
        }
    }
}
