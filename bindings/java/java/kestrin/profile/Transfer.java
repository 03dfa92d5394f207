package kestrin.profile;

import java.util.List;
import java.util.concurrent.atomic.AtomicLong;

/** A request that a {@link Transport} sends. Any thread. */
public final class Transfer {
    private final AtomicLong handle;
    private final Runnable ended;
    private Runnable cancel;
    private boolean cancelled;

    Transfer(long handle, Runnable ended) {
        this.handle = new AtomicLong(handle);
        this.ended = ended;
    }

    /**
     * Ends the transfer with a reply of any status. Does nothing if it has ended.
     *
     * @param status   of HTTP
     * @param headers  of the reply
     * @param body     after content decoding
     */
    public void finish(int status, List<Header> headers, byte[] body) {
        long open = take();
        if (open == 0) return;
        byte[] reply;
        try {
            reply =
                    new WireWriter()
                            .number(status)
                            .<Header>all(headers, Header::write)
                            .blob(body)
                            .text("effectiveURL", null)
                            .toBytes();
        } catch (RuntimeException problem) {
            Native.failTransfer(open, SlingErrorKind.MALFORMED_REPLY.code(), null);
            return;
        } catch (OutOfMemoryError problem) {
            Native.failTransfer(open, SlingErrorKind.OUT_OF_MEMORY.code(), null);
            throw problem;
        }
        // A reply that is refused fails the request; the application hears of it there.
        Native.finishTransfer(open, reply);
    }

    /**
     * Ends the transfer with an error. Does nothing if it has ended.
     *
     * @param kind     what went wrong; null is {@link SlingErrorKind#CONNECTION_LOST}
     * @param message  for people, without secrets; may be null
     */
    public void fail(SlingErrorKind kind, String message) {
        long open = take();
        if (open == 0) return;
        byte[] text;
        try {
            text = WireWriter.utf8("message", message);
        } catch (InvalidCallException | OutOfMemoryError problem) {
            text = null;
        }
        SlingErrorKind known = kind == null ? SlingErrorKind.CONNECTION_LOST : kind;
        Native.failTransfer(open, known.code(), text);
    }

    /**
     * What to do when nobody wants the outcome any more; it is done at once if that is so already.
     * The transfer is to be ended all the same. Called on the library's one thread for events, or on
     * this one.
     */
    public void onCancel(Runnable action) {
        synchronized (this) {
            cancel = action;
            if (!cancelled) return;
        }
        action.run();
    }

    void cancel() {
        Runnable action;
        synchronized (this) {
            cancelled = true;
            action = cancel;
        }
        if (action != null) action.run();
    }

    private long take() {
        long open = handle.getAndSet(0);
        if (open != 0) ended.run();
        return open;
    }
}
