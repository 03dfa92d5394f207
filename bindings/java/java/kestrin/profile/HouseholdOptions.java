package kestrin.profile;

import java.util.Objects;
import java.util.concurrent.Executor;
import java.util.concurrent.ForkJoinPool;
import java.util.function.Consumer;

/**
 * What an application makes of its household.
 *
 * @param retry     which requests are repeated
 * @param log       told of repeats and binds, one event at a time, by the executor; null: nobody is
 * @param executor  where futures are completed and listeners called
 */
public record HouseholdOptions(
        RetryPolicy retry, Consumer<HouseholdEvent> log, Executor executor) {
    /** Neither the policy nor the executor may be null. */
    public HouseholdOptions {
        Objects.requireNonNull(retry, "retry");
        Objects.requireNonNull(executor, "executor");
    }

    /** The default policy, no log, and {@link ForkJoinPool#commonPool}. */
    public static HouseholdOptions defaults() {
        return new HouseholdOptions(RetryPolicy.defaults(), null, ForkJoinPool.commonPool());
    }

    /** The same with another policy. */
    public HouseholdOptions withRetry(RetryPolicy other) {
        return new HouseholdOptions(other, log, executor);
    }

    /** The same with a log. */
    public HouseholdOptions withLog(Consumer<HouseholdEvent> other) {
        return new HouseholdOptions(retry, other, executor);
    }

    /** The same with an executor. */
    public HouseholdOptions withExecutor(Executor other) {
        return new HouseholdOptions(retry, log, other);
    }
}
