package kestrin.profile;

import java.time.Duration;
import java.util.List;

/**
 * Which requests are repeated, how often and when; docs/household.md says why the defaults are so.
 *
 * @param maxAttempts        the first one included; 1 or less: once
 * @param firstDelay         the limit of the first wait, which doubles
 * @param longestDelay       up to this
 * @param deadline           of a call that repeats its request
 * @param unsentErrors       after these any request is repeated: nothing of it was sent
 * @param idempotentMethods  whose requests are repeated after the next two
 * @param errors             of transfers
 * @param statuses           of replies
 * @param refusals           statuses after which a request of any method is repeated
 * @param budget             what bounds the repeats of all calls together
 */
public record RetryPolicy(
        int maxAttempts,
        Duration firstDelay,
        Duration longestDelay,
        Duration deadline,
        List<SlingErrorKind> unsentErrors,
        List<String> idempotentMethods,
        List<SlingErrorKind> errors,
        List<Integer> statuses,
        List<Integer> refusals,
        Budget budget) {
    /**
     * Repeats are paid for by successes.
     *
     * @param share    what a request that succeeds adds
     * @param atStart  what there is at the start
     * @param atMost   what there may be
     */
    public record Budget(double share, double atStart, double atMost) {}

    /** Copies the lists. */
    public RetryPolicy {
        unsentErrors = List.copyOf(unsentErrors);
        idempotentMethods = List.copyOf(idempotentMethods);
        errors = List.copyOf(errors);
        statuses = List.copyOf(statuses);
        refusals = List.copyOf(refusals);
    }

    /** The library's own. */
    public static RetryPolicy defaults() {
        WireReader reader = Native.checked(Native.defaultRetryPolicy());
        return new RetryPolicy(
                reader.integer(),
                reader.milliseconds(),
                reader.milliseconds(),
                reader.milliseconds(),
                reader.all(RetryPolicy::readKind),
                reader.all(WireReader::text),
                reader.all(RetryPolicy::readKind),
                reader.all(WireReader::integer),
                reader.all(WireReader::integer),
                new Budget(reader.real(), reader.real(), reader.real()));
    }

    /** A policy under which nothing is repeated. */
    public static RetryPolicy never() {
        return defaults().withMaxAttempts(1);
    }

    /** The same with another number of attempts. */
    public RetryPolicy withMaxAttempts(int other) {
        return new RetryPolicy(
                other,
                firstDelay,
                longestDelay,
                deadline,
                unsentErrors,
                idempotentMethods,
                errors,
                statuses,
                refusals,
                budget);
    }

    /** The same with other waits. */
    public RetryPolicy withDelays(Duration first, Duration longest) {
        return new RetryPolicy(
                maxAttempts,
                first,
                longest,
                deadline,
                unsentErrors,
                idempotentMethods,
                errors,
                statuses,
                refusals,
                budget);
    }

    /** The same with another deadline. */
    public RetryPolicy withDeadline(Duration other) {
        return new RetryPolicy(
                maxAttempts,
                firstDelay,
                longestDelay,
                other,
                unsentErrors,
                idempotentMethods,
                errors,
                statuses,
                refusals,
                budget);
    }

    /** The same with another budget. */
    public RetryPolicy withBudget(Budget other) {
        return new RetryPolicy(
                maxAttempts,
                firstDelay,
                longestDelay,
                deadline,
                unsentErrors,
                idempotentMethods,
                errors,
                statuses,
                refusals,
                other);
    }

    private static SlingErrorKind readKind(WireReader reader) {
        return Codes.of(SlingErrorKind.class, reader.integer());
    }

    byte[] toBytes() {
        return new WireWriter()
                .number(maxAttempts)
                .milliseconds(firstDelay)
                .milliseconds(longestDelay)
                .milliseconds(deadline)
                .<SlingErrorKind>all(unsentErrors, (writer, kind) -> writer.number(kind.code()))
                .<String>all(idempotentMethods, (writer, name) -> writer.text("method", name))
                .<SlingErrorKind>all(errors, (writer, kind) -> writer.number(kind.code()))
                .<Integer>all(statuses, (writer, status) -> writer.number(status.intValue()))
                .<Integer>all(refusals, (writer, status) -> writer.number(status.intValue()))
                .number(budget.share)
                .number(budget.atStart)
                .number(budget.atMost)
                .toBytes();
    }
}
