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
        Transfer transfer;
        try {
            transfer = new Transfer(handle, () -> open.remove(id));
            open.put(id, transfer);
        } catch (OutOfMemoryError problem) {
            // Nobody else has it.
            Native.failTransfer(handle, SlingErrorKind.OUT_OF_MEMORY.code(), null);
            throw problem;
        }
        try {
            transport.send(TransferRequest.read(event), transfer);
        } catch (Throwable problem) {
            // It may have sent something before.
            transfer.fail(SlingErrorKind.CONNECTION_LOST, "the transport threw " + problem.getClass());
            Events.report(problem);
        }
    }

    private void cancel(long id) {
        Transfer transfer = open.get(id);
        if (transfer != null) transfer.cancel();
    }
}
