package kestrin.profile;

/** Where binds are kept between runs of the application: the platform's key store. */
public interface BindStore {
    /** What the store has; never null. Called once, on the thread that sets the store. */
    HeldBinds load();

    /**
     * Keeps all binds, in the place of those that were kept. Called after every change, one call at
     * a time, on threads of {@link java.util.concurrent.ForkJoinPool#commonPool}. What it throws
     * goes to the thread's uncaught exception handler.
     */
    void save(HeldBinds held);
}
