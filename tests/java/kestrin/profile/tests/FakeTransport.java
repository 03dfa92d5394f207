package kestrin.profile.tests;

import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.atomic.AtomicInteger;
import kestrin.profile.AnonymousBind;
import kestrin.profile.ConfigurationManager;
import kestrin.profile.Header;
import kestrin.profile.Transfer;
import kestrin.profile.TransferRequest;
import kestrin.profile.Transport;

/** A transport that answers every request alike, or keeps what it was given. */
final class FakeTransport implements Transport {
    record Sent(TransferRequest request, Transfer transfer) {}

    static final List<Header> JSON = List.of(new Header("Content-Type", "application/json"));

    final BlockingQueue<Sent> waiting = new LinkedBlockingQueue<>();
    final BlockingQueue<TransferRequest> cancelled = new LinkedBlockingQueue<>();
    final AtomicInteger sent = new AtomicInteger();
    private final int status;
    private final byte[] body;

    private FakeTransport(int status, String body) {
        this.status = status;
        this.body = body.getBytes(StandardCharsets.UTF_8);
    }

    /** With the configuration that the project ships, and binds of the parent and a kid. */
    static FakeTransport answering(int status, String body) {
        FakeTransport transport = new FakeTransport(status, body);
        ConfigurationManager.setTransport(transport);
        ConfigurationManager.dropBinds();
        try {
            ConfigurationManager.configure(
                    Files.readString(Path.of(System.getProperty("kestrin.configuration"))));
        } catch (IOException problem) {
            throw new UncheckedIOException(problem);
        }
        ConfigurationManager.storeBind(new AnonymousBind("kid", "the.kids.token"));
        ConfigurationManager.storeBind(new AnonymousBind("parent", "the.parents.token"));
        ConfigurationManager.selectProfile("kid");
        return transport;
    }

    /** What it gets waits for the test. */
    static FakeTransport keeping() {
        return answering(0, "");
    }

    /** The next transfer that was sent. */
    Sent next() {
        return taken(waiting);
    }

    /** The next one that nobody wants any more. */
    TransferRequest nextCancelled() {
        return taken(cancelled);
    }

    static <T> T taken(BlockingQueue<T> queue) {
        try {
            return queue.take();
        } catch (InterruptedException problem) {
            throw new IllegalStateException(problem);
        }
    }

    /** All that is in a queue. */
    static <T> List<T> all(BlockingQueue<T> queue) {
        List<T> taken = new ArrayList<>();
        queue.drainTo(taken);
        return taken;
    }

    @Override
    public void send(TransferRequest request, Transfer transfer) {
        sent.incrementAndGet();
        if (status != 0) {
            transfer.finish(status, JSON, body);
            return;
        }
        transfer.onCancel(() -> cancelled.add(request));
        waiting.add(new Sent(request, transfer));
    }
}
