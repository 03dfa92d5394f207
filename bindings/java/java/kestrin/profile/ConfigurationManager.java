package kestrin.profile;

import java.util.concurrent.Executor;
import java.util.concurrent.ForkJoinPool;

/**
 * What the process has once: the configuration, the binds and what sends requests. Any thread. A
 * method throws {@link InvalidCallException} if what it gets is not what it asks for.
 */
public final class ConfigurationManager {
    private ConfigurationManager() {}

    /** The library's version, e.g. "0.1.0". */
    public static String version() {
        return Native.text(Native.version());
    }

    /**
     * Sets the configuration. If it has problems the former one stays, and the exception's message
     * has them, a line each.
     *
     * @param json  the text of a configuration file (docs/configuration.md)
     */
    public static void configure(String json) {
        Native.check(Native.configure(WireWriter.utf8("json", json)));
    }

    /** Forgets the configuration; binds stay. */
    public static void removeConfiguration() {
        Native.check(Native.removeConfiguration());
    }

    /** Stores a bind that the application has. The first one that is stored selects its profile. */
    public static void storeBind(AnonymousBind bind) {
        WireWriter writer = new WireWriter();
        AnonymousBind.write(writer, bind);
        Native.check(Native.storeBind(writer.toBytes()));
    }

    /** Selects the profile whose bind plain operations use if they are given none. */
    public static void selectProfile(String profileID) {
        Native.check(Native.selectProfile(WireWriter.utf8("profileID", profileID)));
    }

    /** Forgets all binds that are held, also those in the bind store. */
    public static void dropBinds() {
        Native.check(Native.dropBinds());
    }

    /** All binds that are held. */
    public static HeldBinds heldBinds() {
        return Result.read(Native.checked(Native.heldBinds())).heldBinds();
    }

    /**
     * Binds are kept there from now on, and what it holds replaces what is held. Calls {@link
     * BindStore#load} on this thread, and throws what that throws.
     *
     * @param store  null: in memory only, as at the start
     */
    public static void setBindStore(BindStore store) {
        if (store == null) {
            Native.check(Native.setBindStore(0, null));
            return;
        }
        byte[] loaded = store.load().toBytes();
        Events.registerChecked(new SavedBinds(store), id -> Native.setBindStore(id, loaded));
    }

    /**
     * Sends all requests made from now on with this. What the former one has open is cancelled,
     * unless requests still use it.
     *
     * @param transport  null: the built-in one (libcurl)
     */
    public static void setTransport(Transport transport) {
        if (transport == null) Native.check(Native.setTransport(0));
        else Events.registerChecked(new Transfers(transport), Native::setTransport);
    }

    /** Hands the states of the binds to a store, one after the other, and none that is old. */
    private static final class SavedBinds implements Events.Target {
        private final BindStore store;
        private final Executor executor = new SerialExecutor(ForkJoinPool.commonPool());
        private long latest = -1;

        SavedBinds(BindStore store) {
            this.store = store;
        }

        @Override
        public void event(int kind, WireReader event) {
            HeldBinds held = new HeldBinds(event.all(AnonymousBind::read), event.text());
            long revision = event.number();
            if (revision <= latest) return;
            latest = revision;
            executor.execute(() -> store.save(held));
        }
    }
}
