package kestrin.profile.tests;

import static kestrin.profile.tests.Tests.equal;
import static kestrin.profile.tests.Tests.that;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.atomic.AtomicReference;
import kestrin.profile.ConfigurationManager;
import kestrin.profile.Inside;
import kestrin.profile.Profile;
import kestrin.profile.UserProfile;

/** Many calls of many threads leave nothing behind. */
public final class LoadTest {
    private static final int THREADS = 8;
    private static final int CALLS = 100_000;
    private static final int WARM_UP = 20_000;
    private static final long MOST_GROWTH = 2 << 20;
    private static final long MOST_NATIVE_GROWTH = 32 << 20;
    private static final String LIST =
            "{\"id\": \"l\", \"elements\": [{\"id\": \"v1\", \"type\": \"VIDEO\"}, {\"id\": \"ü\"}]}";

    private LoadTest() {}

    public static void aHundredThousandCallsOfEightThreadsLeaveTheHeapFlat() throws Exception {
        FakeTransport transport = FakeTransport.answering(200, LIST);
        run(WARM_UP);
        long before = used();
        long nativeBefore = resident();
        run(CALLS - WARM_UP);
        long growth = used() - before;
        long nativeGrowth = resident() - nativeBefore;
        System.out.println("heap grew by " + growth + " bytes, all memory by " + nativeGrowth);
        equal(CALLS, transport.sent.get());
        that(growth < MOST_GROWTH, "the heap grew by " + growth + " bytes");
        that(nativeGrowth < MOST_NATIVE_GROWTH, "the memory grew by " + nativeGrowth + " bytes");
        ConfigurationManager.setTransport(null);
        while (Inside.held() > 0) Thread.onSpinWait();
    }

    private static void run(int calls) throws InterruptedException {
        AtomicReference<Throwable> problem = new AtomicReference<>();
        List<Thread> threads = new ArrayList<>();
        for (int number = 0; number < THREADS; ++number) {
            Thread thread = new Thread(() -> call(calls / THREADS));
            thread.setUncaughtExceptionHandler((failed, thrown) -> problem.set(thrown));
            thread.start();
            threads.add(thread);
        }
        for (Thread thread : threads) thread.join();
        if (problem.get() != null) throw new AssertionError(problem.get());
    }

    /** A few requests at once, as a screen makes them. */
    private static void call(int calls) {
        Profile profile = new Profile();
        int atOnce = 10;
        for (int done = 0; done < calls; done += atOnce) {
            List<CompletableFuture<UserProfile>> lists = new ArrayList<>();
            for (int each = 0; each < atOnce; ++each) lists.add(profile.watchList());
            for (CompletableFuture<UserProfile> list : lists)
                equal("ü", list.join().elements().get(1).id());
        }
    }

    private static long used() {
        Runtime runtime = Runtime.getRuntime();
        for (int round = 0; round < 3; ++round) System.gc();
        return runtime.totalMemory() - runtime.freeMemory();
    }

    private static long resident() throws IOException {
        String line =
                Files.readAllLines(Path.of("/proc/self/status")).stream()
                        .filter(each -> each.startsWith("VmRSS:"))
                        .findFirst()
                        .orElseThrow();
        return 1024 * Long.parseLong(line.replaceAll("\\D", ""));
    }
}
