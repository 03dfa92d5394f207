package kestrin.profile;

import java.util.concurrent.Executor;
import java.util.function.Consumer;
import java.util.function.Function;

/** Tells an application of events, one at a time and in their order. */
final class Listener<T> implements Events.Target {
    private final Executor executor;
    private final Function<WireReader, T> read;
    private final Consumer<? super T> listener;

    Listener(Executor executor, Function<WireReader, T> read, Consumer<? super T> listener) {
        this.executor = new SerialExecutor(executor);
        this.read = read;
        this.listener = listener;
    }

    @Override
    public void event(int kind, WireReader event) {
        executor.execute(() -> listener.accept(read.apply(event)));
    }
}
