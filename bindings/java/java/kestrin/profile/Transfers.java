package kestrin.profile;

import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;

/** The transfers of a transport that have not ended. */
final class Transfers implements Events.Target {
    private final Transport transport;
    private final Map<Long, Transfer> open = new ConcurrentHashMap<>();

    Transfers(Transport transport) {
        this.transport = transport;
    }

    @Override
    public void event(int kind, WireReader event) {
        long id = event.number();
        if (kind == Events.CANCEL) cancel(id);
        else send(id, event.number(), event);
    }

    private void send(long id, long handle, WireReader event) {
        Transfer transfer = new Transfer(handle, () -> open.remove(id));
        open.put(id, transfer);
        try {
            transport.send(TransferRequest.read(event), transfer);
        } catch (Throwable problem) {
            transfer.fail(SlingErrorKind.CANNOT_CONNECT, "the transport threw " + problem.getClass());
            Events.report(problem);
        }
    }

    private void cancel(long id) {
        Transfer transfer = open.get(id);
        if (transfer != null) transfer.cancel();
    }
}
