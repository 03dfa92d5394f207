package kestrin.profile;

import java.util.concurrent.CompletableFuture;

/**
 * A session whose writes an {@link Outbox} keeps until the service has them. A future ends once the
 * write is stored.
 */
public final class LaterSession extends ListWrites<OutboxEntry> {
    private final ProfileSession session;
    private final Outbox outbox;

    LaterSession(ProfileSession session, Outbox outbox) {
        this.session = session;
        this.outbox = outbox;
    }

    @Override
    CompletableFuture<OutboxEntry> write(Call call) {
        return Requests.start(
                outbox,
                session.household().executor(),
                Result::entry,
                (context, request) -> {
                    byte[] bytes = call.toBytes();
                    return session.handle().use(acting -> keep(acting, bytes, context, request));
                });
    }

    private int keep(long acting, byte[] call, long context, long[] request) {
        return outbox.handle()
                .use(keeping -> Native.keep(acting, keeping, call, context, request));
    }
}
