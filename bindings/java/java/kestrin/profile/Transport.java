package kestrin.profile;

/**
 * Sends the library's requests with the platform's means, e.g. OkHttp. Time limits and the
 * verification of the peer are the platform's to keep. Only requests that just read (GET, HEAD,
 * OPTIONS, TRACE) may be sent again by it. Redirects may be followed within the origin alone, or not
 * at all.
 */
@FunctionalInterface
public interface Transport {
    /**
     * Begins a transfer. Called on the library's one thread for events, so it must not block.
     *
     * @param request   what is to be sent
     * @param transfer  to be ended once, now or later, on any thread, also if it was cancelled. If
     *                  this method throws it ends with {@link SlingErrorKind#CONNECTION_LOST}: the
     *                  service may have it. Kinds that say that nothing was sent, e.g. {@link
     *                  SlingErrorKind#CANNOT_CONNECT}, let any request be sent again.
     */
    void send(TransferRequest request, Transfer transfer);
}
