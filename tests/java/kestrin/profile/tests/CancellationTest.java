package kestrin.profile.tests;

import static kestrin.profile.tests.Tests.equal;
import static kestrin.profile.tests.Tests.failure;
import static kestrin.profile.tests.Tests.that;

import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CancellationException;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeoutException;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicReference;
import kestrin.profile.Household;
import kestrin.profile.HouseholdOptions;
import kestrin.profile.Inside;
import kestrin.profile.Profile;
import kestrin.profile.ProfileSession;
import kestrin.profile.UserProfile;

/** Who ends a future ends what is under way for it. */
public final class CancellationTest {
    private static final byte[] LIST = "{\"elements\": []}".getBytes(StandardCharsets.UTF_8);

    private CancellationTest() {}

    public static void cancelReachesTheTransfer() {
        FakeTransport transport = FakeTransport.keeping();
        CompletableFuture<UserProfile> list = new Profile().history();
        FakeTransport.Sent sent = transport.next();
        that(list.cancel(false), "it was under way");
        equal(sent.request(), transport.nextCancelled());
        failure(CancellationException.class, list);
        sent.transfer().finish(200, FakeTransport.JSON, LIST);
        that(list.isCancelled(), "a reply that comes later changes nothing");
    }

    public static void aTimeLimitOfTheFutureReachesTheTransfer() {
        FakeTransport transport = FakeTransport.keeping();
        CompletableFuture<UserProfile> list =
                new Profile().history().orTimeout(1, TimeUnit.MILLISECONDS);
        failure(TimeoutException.class, list);
        equal(transport.next().request(), transport.nextCancelled());
    }

    public static void aHouseholdThatIsClosedCancelsItsRequests() {
        FakeTransport transport = FakeTransport.keeping();
        Household household = new Household();
        ProfileSession session = household.session("kid");
        CompletableFuture<UserProfile> list = session.history();
        transport.next();
        household.close();
        failure(CancellationException.class, list);
        failure(CancellationException.class, session.history());
        session.close();
    }

    public static void aSessionThatIsClosedLetsItsRequestsGoOn() {
        FakeTransport transport = FakeTransport.keeping();
        try (Household household = new Household()) {
            ProfileSession session = household.session("kid");
            CompletableFuture<UserProfile> list = session.history();
            session.close();
            transport.next().transfer().finish(200, FakeTransport.JSON, LIST);
            equal(List.of(), list.join().elements());
        }
    }

    public static void aRequestMayBeCancelledWhereItIsCompleted() {
        FakeTransport transport = FakeTransport.keeping();
        Profile profile = new Profile().withExecutor(Runnable::run);
        CompletableFuture<UserProfile> list = profile.history();
        CompletableFuture<Boolean> cancelled = list.thenApply(value -> list.cancel(true));
        transport.next().transfer().finish(200, FakeTransport.JSON, LIST);
        equal(false, cancelled.join());
    }

    /** Reply, cancellation and the end of the household at once, again and again. */
    public static void eachFutureEndsOnceWhoeverIsFirst() throws InterruptedException {
        int rounds = 2000;
        FakeTransport transport = FakeTransport.keeping();
        Thread answering =
                new Thread(
                        () -> {
                            for (int round = 0; round < rounds; ++round)
                                transport
                                        .next()
                                        .transfer()
                                        .finish(200, FakeTransport.JSON, LIST);
                        });
        answering.start();
        List<CompletableFuture<UserProfile>> lists = new ArrayList<>();
        Profile profile = new Profile();
        for (int round = 0; round < rounds; ++round) {
            CompletableFuture<UserProfile> list = profile.history();
            if (round % 2 == 0) list.cancel(false);
            lists.add(list);
        }
        int answered = 0;
        for (CompletableFuture<UserProfile> list : lists) {
            if (list.handle((value, problem) -> value != null).join()) ++answered;
            else that(list.isCancelled(), "it was answered or cancelled");
        }
        answering.join();
        that(answered >= rounds / 2, "what nobody cancels is answered");
        until(0);
    }

    public static void householdsMayBeClosedWhileThreadsUseThem() throws InterruptedException {
        FakeTransport.answering(200, "{\"elements\": []}");
        for (int round = 0; round < 50; ++round) {
            Household household = new Household(HouseholdOptions.defaults());
            ProfileSession session = household.session("kid");
            CountDownLatch begun = new CountDownLatch(2);
            AtomicReference<Throwable> unexpected = new AtomicReference<>();
            Runnable use =
                    () -> {
                        try {
                            for (int call = 0; call < 20; ++call) {
                                session.history()
                                        .handle((value, problem) -> kindOf(value, problem))
                                        .join();
                                if (call == 2) begun.countDown();
                            }
                        } catch (Throwable problem) {
                            unexpected.set(problem);
                            begun.countDown();
                        }
                    };
            Thread first = new Thread(use);
            Thread second = new Thread(use);
            first.start();
            second.start();
            begun.await();
            session.close();
            household.close();
            first.join();
            second.join();
            if (unexpected.get() != null) throw new AssertionError(unexpected.get());
        }
        until(0);
    }

    private static boolean kindOf(UserProfile value, Throwable problem) {
        Throwable cause =
                problem instanceof java.util.concurrent.CompletionException
                        ? problem.getCause()
                        : problem;
        that(
                value != null
                        || cause instanceof CancellationException
                        || cause instanceof IllegalStateException,
                "unexpected: " + problem);
        return true;
    }

    /** Waits until the library holds this many objects, besides the transport. */
    private static void until(int count) {
        while (Inside.held() > count + 1) Thread.onSpinWait();
    }
}
