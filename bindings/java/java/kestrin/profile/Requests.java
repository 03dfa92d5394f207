package kestrin.profile;

import java.util.concurrent.CancellationException;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.Executor;
import java.util.concurrent.RejectedExecutionException;
import java.util.function.Function;

/** Requests of the library as futures. */
final class Requests {
    private Requests() {}

    /** Begins a request: hands the library a context, gets the request's handle, and returns a status. */
    interface Start {
        int begin(long context, long[] request);
    }

    /**
     * Begins a request. Never throws but for want of memory: the future fails instead.
     *
     * @param owner     what must not be collected before the request has ended; may be null
     * @param executor  where the future is completed
     * @param value     takes the value out of the result
     */
    static <T> CompletableFuture<T> start(
            Object owner, Executor executor, Function<Result, T> value, Start start) {
        CompletableFuture<T> future = new CompletableFuture<>();
        long[] request = new long[1];
        try {
            Events.registerChecked(
                    new Completion<>(future, owner, executor, value),
                    context -> start.begin(context, request));
        } catch (RuntimeException | OutOfMemoryError problem) {
            future.completeExceptionally(problem);
            return future;
        }
        // However the future ends, by us, by cancel or by orTimeout: what is under way is cancelled.
        long handle = request[0];
        if (handle != 0) future.whenComplete((result, problem) -> Native.endRequest(handle, true));
        return future;
    }

    private record Completion<T>(
            CompletableFuture<T> future, Object owner, Executor executor, Function<Result, T> value)
            implements Events.Target {
        @Override
        public void event(int kind, WireReader event) {
            run(() -> complete(event));
        }

        @Override
        public void released(boolean lackedMemory) {
            if (lackedMemory)
                run(() -> future.completeExceptionally(
                        new OutOfMemoryError("no memory for the result")));
        }

        private void run(Runnable completion) {
            if (future.isDone()) return;
            try {
                executor.execute(completion);
            } catch (Throwable problem) {
                // Nobody is left there; whoever waits shall not wait for ever.
                if (!(problem instanceof RejectedExecutionException)) Events.report(problem);
                completion.run();
            }
        }

        private void complete(WireReader event) {
            T completed;
            try {
                Result result = Result.read(event);
                if (result.isCancelled()) {
                    future.completeExceptionally(
                            new CancellationException(result.error().getMessage()));
                    return;
                }
                if (result.error() != null) {
                    future.completeExceptionally(result.error());
                    return;
                }
                completed = value.apply(result);
            } catch (Throwable problem) {
                future.completeExceptionally(problem);
                return;
            }
            future.complete(completed);
        }
    }
}
