package kestrin.profile.tests;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.Comparator;
import java.util.Objects;
import java.util.concurrent.CompletionException;
import java.util.concurrent.CompletableFuture;

/** Runs the tests of a class, its public static methods, and says which of them fail. */
public final class Tests {
    private Tests() {}

    public static void main(String[] names) throws Exception {
        int failed = 0;
        int count = 0;
        for (String name : names) {
            for (Method test : testsOf(Class.forName("kestrin.profile.tests." + name))) {
                ++count;
                if (!passes(test)) ++failed;
            }
        }
        if (count == 0) throw new IllegalStateException("there are no tests");
        System.out.println(count + " tests, " + failed + " failed");
        System.exit(failed == 0 ? 0 : 1);
    }

    private static Method[] testsOf(Class<?> type) {
        return Arrays.stream(type.getDeclaredMethods())
                .filter(each -> Modifier.isPublic(each.getModifiers()) && !each.isSynthetic())
                .sorted(Comparator.comparing(Method::getName))
                .toArray(Method[]::new);
    }

    private static boolean passes(Method test) throws IllegalAccessException {
        String name = test.getDeclaringClass().getSimpleName() + "." + test.getName();
        try {
            test.invoke(null);
            System.out.println("ok " + name);
            return true;
        } catch (InvocationTargetException problem) {
            System.out.println("FAILED " + name);
            problem.getCause().printStackTrace(System.out);
            return false;
        }
    }

    // ---- What tests expect ----------------------------------------------------------------------

    static void that(boolean holds, String what) {
        if (!holds) throw new AssertionError(what);
    }

    static void equal(Object expected, Object actual) {
        if (!Objects.equals(expected, actual))
            throw new AssertionError("expected " + expected + ", but was " + actual);
    }

    static void contains(String part, String text) {
        that(text != null && text.contains(part), "'" + text + "' does not contain '" + part + "'");
    }

    /** Something that must be thrown. */
    static <E extends Throwable> E thrown(Class<E> type, Runnable action) {
        try {
            action.run();
        } catch (Throwable problem) {
            return of(type, problem);
        }
        throw new AssertionError("expected " + type + ", but nothing was thrown");
    }

    /** What a future must fail with. */
    static <E extends Throwable> E failure(Class<E> type, CompletableFuture<?> future) {
        try {
            Object value = future.join();
            throw new AssertionError("expected " + type + ", but there is " + value);
        } catch (CompletionException problem) {
            return of(type, problem.getCause());
        } catch (java.util.concurrent.CancellationException problem) {
            return of(type, problem);
        }
    }

    private static <E extends Throwable> E of(Class<E> type, Throwable problem) {
        if (!type.isInstance(problem))
            throw new AssertionError("expected " + type + ", but was " + problem, problem);
        return type.cast(problem);
    }
}
